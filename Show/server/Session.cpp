#include <Show/server/Session.h>

#include <Corvid/URL.h>
#include <Orvel/CreateEmitterEvent.h>
#include <Orvel/Emitter.h>

#include <exception>
#include <utility>
#include <variant>

namespace Show {

namespace {

constexpr std::size_t kMaxMissingNamed = 10;

} // namespace

Session::Session(Orvel::World& world, const LoadedScene& bank, LongFiles longFiles)
    : world_(world), bank_(bank), longFiles_(longFiles) {
    for (const SourceSpec& spec : bank.scene.sources) {
        specs_.emplace(spec.id, &spec);
    }
    for (const Change& change : bank.scene.timeline) {
        if (change.newSource) {
            specs_.emplace(change.newSource->id, &*change.newSource);
        }
    }
}

Session::Session(Orvel::World& world, const LoadedScene& bank, GiveSound give)
    : Session(world, bank) {
    give_ = std::move(give);
}

std::vector<Problem> Session::fetch() {
    std::vector<Problem> problems;
    for (const auto& [id, spec] : specs_) {
        const auto* url = std::get_if<SoundUrl>(&spec->sound);
        if (url == nullptr || files_.contains(url->text)) {
            continue;
        }
        try {
            files_[url->text] = Corvid::URL(url->text).fetch();
        } catch (const std::exception& fault) {
            problems.push_back(
                {bank_.scene.path, spec->soundWhere.line, spec->soundWhere.field, fault.what()});
        }
    }
    return problems;
}

void Session::give(Orvel::Source& source, const Sound& sound) const {
    const auto* url = std::get_if<SoundUrl>(&sound);
    if (give_) {
        give_(source, sound);
    } else if (url == nullptr) {
        giveSound(bank_.sounds, source, sound, longFiles_);
    } else if (const auto file = files_.find(url->text); file != files_.end()) {
        nameSound(source, sound);
        giveUrl(source, file->second->name());
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

void Session::forgetAll() {
    makers_.clear();
    local_.clear();
    refused_.clear();
    disabledBy_.clear();
    fresh_ = true;
}

void Session::restore(Orvel::Source& source) {
    std::vector<Orvel::Emitter*> ofClients;
    for (const auto& [id, emitter] : source.connectedEmitters()) {
        if (!local_.contains(id)) {
            ofClients.push_back(emitter);
        }
    }
    for (Orvel::Emitter* emitter : ofClients) {
        emitter->setSource(nullptr);
    }
    if (!source.connectedEmitters().empty()) {
        return;
    }
    source.setState(Orvel::WorldPart::NONE);
    const auto spec = specs_.find(source.id());
    if (spec != specs_.end() &&
        (source.loop() != spec->second->loop || source.pitch() != spec->second->pitch)) {
        source.setParam(spec->second->loop, spec->second->pitch);
    }
}

void Session::restoreEnabled() {
    disabledBy_.clear();
    world_.setEnabled(true);
}

void Session::reset(const std::string& client) {
    if (!disabledBy_.empty() && disabledBy_ != client) {
        restoreEnabled();
    }
    if (std::exchange(fresh_, true)) {
        return;
    }
    for (auto entry = world_.emitters().begin(); entry != world_.emitters().end();) {
        Orvel::Emitter* emitter = (entry++)->second; // destroying removes the map's entry
        if (!local_.contains(emitter->id())) {
            delete emitter;
        }
    }
    for (const auto& [id, source] : world_.sources()) {
        restore(*source);
    }
    makers_.clear();
    refused_.clear();
}

const char* Session::whyRefused(const Orvel::CommandEvent& event) const {
    if (event.objectId < kMinEmitterId) {
        return "ids start at 1";
    }
    if (local_.contains(event.objectId)) {
        return "Open Sound Control has created one with this id; change one of the ids";
    }
    const auto* create = dynamic_cast<const Orvel::CreateEmitterEvent*>(&event);
    if (create == nullptr) {
        return nullptr;
    }
    std::size_t bytes = 0;
    for (const std::string& label : create->labels) {
        bytes += label.size();
    }
    return create->labels.size() > kMaxLabels || bytes > kMaxLabelBytes
               ? "it has more than 64 labels, or more than 4096 bytes of them"
               : nullptr;
}

void Session::refuse(int id, const char* reason) {
    refused_.insert(id);
    if (reported_.size() < kMaxReportedRefusals && reported_.emplace(id, reason).second) {
        newRefusals_.push_back("refused emitter " + std::to_string(id) + " of a client: " + reason);
        if (reported_.size() == kMaxReportedRefusals) {
            newRefusals_.emplace_back("further refusals are not reported");
        }
    }
}

bool Session::isRefused(int id) const {
    return (!local_.empty() && local_.contains(id)) || (!refused_.empty() && refused_.contains(id));
}

bool Session::intercept(
    const Orvel::CommandEvent& event, const std::function<std::string()>& client, bool local) {
    const int id = event.objectId;
    if (!local) {
        if (event.command == Orvel::CmdResetBackend) {
            reset(client());
            return true;
        }
        fresh_ = false;
    }
    switch (event.command) {
    case Orvel::CmdEnable:
    case Orvel::CmdDisable:
        disabledBy_ = local || event.command == Orvel::CmdEnable ? "" : client();
        return false;
    case Orvel::CmdCreateSource:
        if (!provide(id) && missing_.insert(id).second) {
            newMissing_.push_back(id);
        }
        return true;
    case Orvel::CmdDestroySource:
        if (Orvel::Source* source = world_.getSource(id)) {
            restore(*source);
        }
        return true;
    case Orvel::CmdSetSourceParam:
    case Orvel::CmdPlaySource:
    case Orvel::CmdPauseSource:
    case Orvel::CmdStopSource:
        return world_.getSource(id) == nullptr && missing_.contains(id); // reported already
    case Orvel::CmdCreateEmitter:
        if (local) {
            if (world_.getEmitter(id) == nullptr) {
                local_.insert(id);
            }
            return false;
        }
        if (const char* reason = whyRefused(event)) {
            refuse(id, reason);
            return true;
        }
        refused_.erase(id);
        if (world_.getEmitter(id) == nullptr) {
            makers_[id] = client();
        }
        return false;
    case Orvel::CmdDestroyEmitter:
        if (!local && isRefused(id)) {
            return true;
        }
        makers_.erase(id);
        local_.erase(id);
        return false;
    default:
        return !local && Orvel::concernsEmitter(event.command) && isRefused(id);
    }
}

void Session::forget(const std::string& client) {
    if (!disabledBy_.empty() && disabledBy_ == client) {
        restoreEnabled();
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

void Session::keepOnly(const std::set<int>& emitters, const std::set<int>& sources) {
    for (auto entry = makers_.begin(); entry != makers_.end();) {
        if (emitters.contains(entry->first)) {
            ++entry;
        } else {
            delete world_.getEmitter(entry->first);
            entry = makers_.erase(entry);
        }
    }
    for (const auto& [id, source] : world_.sources()) {
        if (!sources.contains(id)) {
            restore(*source);
        }
    }
}

std::string Session::takeMissing() {
    std::string list;
    for (std::size_t i = 0; i < newMissing_.size() && i < kMaxMissingNamed; ++i) {
        list += (i == 0 ? "" : ", ") + std::to_string(newMissing_[i]);
    }
    if (newMissing_.size() > kMaxMissingNamed) {
        list += " and " + std::to_string(newMissing_.size() - kMaxMissingNamed) + " more";
    }
    newMissing_.clear();
    return list;
}

} // namespace Show
