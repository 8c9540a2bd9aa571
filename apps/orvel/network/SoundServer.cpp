#include "network/SoundServer.h"

#include "monitor/MonitorBackend.h"
#include "process/Complaint.h"

#include <Corvid/Communicator.h>
#include <Corvid/MultiServer.h>
#include <Corvid/URL.h>
#include <Orvel/CommandEvent.h>
#include <Orvel/Emitter.h>

#include <exception>
#include <utility>

namespace OrvelTool {

namespace {

constexpr unsigned kEventsBetweenLooks = 64; // at the clock
constexpr std::size_t kMostMissingNamed = 10;

} // namespace

SoundServer::SoundServer(const LoadedScene& bank, LibraryMessages& messages, unsigned short port)
    : StageOn(bank.scene, messages, "", port), bank_(bank) {
    for (const SourceSpec& spec : bank.scene.sources) {
        specs_.emplace(spec.id, &spec);
    }
    for (const Change& change : bank.scene.timeline) {
        if (change.newSource) {
            specs_.emplace(change.newSource->id, &*change.newSource);
        }
    }
}

bool SoundServer::fetch() {
    bool good = true;
    for (const auto& [id, spec] : specs_) {
        const auto* url = std::get_if<SoundUrl>(&spec->sound);
        if (url == nullptr || files_.contains(url->text)) {
            continue;
        }
        try {
            files_[url->text] = Corvid::URL(url->text).fetch();
        } catch (const std::exception& fault) {
            complain(Problem{
                bank_.scene.path, spec->soundWhere.line, spec->soundWhere.field, fault.what()}
                         .str());
            good = false;
        }
    }
    return good;
}

void SoundServer::give(Orvel::Source& source, const Sound& sound) const {
    MonitorBackend::nameSound(source, sound);
    if (const auto* url = std::get_if<SoundUrl>(&sound)) {
        source.setDataFromURL(files_.at(url->text)->name());
    } else {
        giveSound(bank_.sounds, source, sound);
    }
}

bool SoundServer::provide(int id) {
    if (getSource(id) != nullptr) {
        return true;
    }
    const auto found = specs_.find(id);
    if (found != specs_.end()) {
        OrvelTool::createSource(
            *this, *found->second,
            [this](Orvel::Source& source, const Sound& sound) { give(source, sound); });
    }
    return found != specs_.end();
}

void SoundServer::fill() {
    for (const SourceSpec& spec : bank_.scene.sources) {
        provide(spec.id);
    }
}

void SoundServer::resetWorld() {
    makers_.clear();
    StageOn::resetWorld();
    fill();
}

void SoundServer::serve(std::chrono::steady_clock::duration atMost) {
    sliceEnd_ = std::chrono::steady_clock::now() + atMost;
    receive(false);
}

bool SoundServer::interceptEvent(Corvid::Event& event, Corvid::Communicator& from) {
    if (++events_ % kEventsBetweenLooks == 0 && std::chrono::steady_clock::now() >= sliceEnd_) {
        multiServer().breakWait(); // receive() returns before the next event
    }
    const auto* command = dynamic_cast<const Orvel::CommandEvent*>(&event);
    if (command == nullptr) {
        return false;
    }
    const int id = command->objectId;
    switch (command->command) {
    case Orvel::CmdCreateSource:
        if (!provide(id) && missing_.insert(id).second) {
            newMissing_.push_back(id);
        }
        return true;
    case Orvel::CmdDestroySource:
        if (Orvel::Source* source = getSource(id)) {
            OrvelTool::destroySource(*source);
        }
        return true;
    case Orvel::CmdSetSourceParam:
    case Orvel::CmdPlaySource:
    case Orvel::CmdPauseSource:
    case Orvel::CmdStopSource:
        return getSource(id) == nullptr && missing_.contains(id); // that has been told
    case Orvel::CmdCreateEmitter:
        if (getEmitter(id) == nullptr) {
            makers_[id] = from.counters().peer;
        }
        return false;
    case Orvel::CmdDestroyEmitter:
        makers_.erase(id);
        return false;
    default:
        return false;
    }
}

void SoundServer::forget(const std::string& client) {
    for (auto entry = makers_.begin(); entry != makers_.end();) {
        if (entry->second == client) {
            delete getEmitter(entry->first);
            entry = makers_.erase(entry);
        } else {
            ++entry;
        }
    }
}

std::string SoundServer::takeMissing() {
    std::string list;
    for (std::size_t i = 0; i < newMissing_.size() && i < kMostMissingNamed; ++i) {
        list += (i == 0 ? "" : ", ") + std::to_string(newMissing_[i]);
    }
    if (newMissing_.size() > kMostMissingNamed) {
        list += " and " + std::to_string(newMissing_.size() - kMostMissingNamed) + " more";
    }
    newMissing_.clear();
    if (list.empty()) {
        return {};
    }
    return "clients want sources that are not here: " + list + "; what plays them stays silent; " +
           (bank_.scene.path.empty()
                ? "start the server with --scene and a scene file that has them"
                : "add them to " + bank_.scene.path);
}

} // namespace OrvelTool
