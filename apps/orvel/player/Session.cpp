#include "player/Session.h"

#include "process/Complaint.h"

#include <Corvid/URL.h>
#include <Orvel/Emitter.h>

#include <exception>
#include <utility>
#include <variant>

namespace OrvelTool {

namespace {

constexpr std::size_t kMostMissingNamed = 10;

} // namespace

Session::Session(Orvel::World& world, const LoadedScene& bank) : world_(world), bank_(bank) {
    for (const SourceSpec& spec : bank.scene.sources) {
        specs_.emplace(spec.id, &spec);
    }
    for (const Change& change : bank.scene.timeline) {
        if (change.newSource) {
            specs_.emplace(change.newSource->id, &*change.newSource);
        }
    }
}

bool Session::fetch() {
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

void Session::give(Orvel::Source& source, const Sound& sound) const {
    const auto* url = std::get_if<SoundUrl>(&sound);
    if (url == nullptr) {
        giveSound(bank_.sounds, source, sound);
    } else if (const auto file = files_.find(url->text); file != files_.end()) {
        nameSound(source, sound);
        source.setDataFromURL(file->second->name());
    }
}

bool Session::provide(int id) {
    if (world_.getSource(id) != nullptr) {
        return true;
    }
    const auto found = specs_.find(id);
    if (found != specs_.end()) {
        createSource(world_, *found->second, [this](Orvel::Source& source, const Sound& sound) {
            give(source, sound);
        });
    }
    return found != specs_.end();
}

void Session::fill() {
    for (const SourceSpec& spec : bank_.scene.sources) {
        provide(spec.id);
    }
}

bool Session::intercept(const Corvid::Event& event, const std::function<std::string()>& client) {
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
        if (Orvel::Source* source = world_.getSource(id)) {
            destroySource(*source);
        }
        return true;
    case Orvel::CmdSetSourceParam:
    case Orvel::CmdPlaySource:
    case Orvel::CmdPauseSource:
    case Orvel::CmdStopSource:
        return world_.getSource(id) == nullptr && missing_.contains(id); // that has been told
    case Orvel::CmdCreateEmitter:
        if (world_.getEmitter(id) == nullptr) {
            makers_[id] = client();
        }
        return false;
    case Orvel::CmdDestroyEmitter:
        makers_.erase(id);
        return false;
    case Orvel::CmdEnable:
        disabledBy_.clear();
        return false;
    case Orvel::CmdDisable:
        disabledBy_ = client();
        return false;
    default:
        return false;
    }
}

void Session::forget(const std::string& client) {
    if (!disabledBy_.empty() && disabledBy_ == client) {
        disabledBy_.clear();
        world_.setEnabled(true);
    }
    for (auto entry = makers_.begin(); entry != makers_.end();) {
        if (entry->second == client) {
            delete world_.getEmitter(entry->first);
            entry = makers_.erase(entry);
        } else {
            ++entry;
        }
    }
}

std::string Session::takeMissing() {
    std::string list;
    for (std::size_t i = 0; i < newMissing_.size() && i < kMostMissingNamed; ++i) {
        list += (i == 0 ? "" : ", ") + std::to_string(newMissing_[i]);
    }
    if (newMissing_.size() > kMostMissingNamed) {
        list += " and " + std::to_string(newMissing_.size() - kMostMissingNamed) + " more";
    }
    newMissing_.clear();
    return list;
}

} // namespace OrvelTool
