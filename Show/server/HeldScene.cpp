#include <Show/server/HeldScene.h>

#include <Orvel/CreateEmitterEvent.h>
#include <Orvel/Emitter.h>
#include <Orvel/PositionEvent.h>
#include <Orvel/Source.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace Show {

namespace {

/// A sound that is further from its position, in nanoseconds, has been started anew.
constexpr double kMaxOff = 30e6;

Orvel::WorldPart::State stateOf(short command) {
    switch (command) {
    case Orvel::CmdPlaySource:
        return Orvel::WorldPart::PLAY;
    case Orvel::CmdPauseSource:
        return Orvel::WorldPart::PAUSE;
    default:
        return Orvel::WorldPart::STOP;
    }
}

bool isActive(const Orvel::WorldPart& part) {
    return part.state() == Orvel::WorldPart::PLAY || part.state() == Orvel::WorldPart::PAUSE;
}

/// Stops one emitter. While it is connected, that would spread to the others of its source.
void stopAlone(Orvel::Emitter& emitter) {
    Orvel::Source* source = emitter.source();
    emitter.setSource(nullptr);
    emitter.setState(Orvel::WorldPart::STOP);
    emitter.setSource(source);
}

} // namespace

void HeldScene::hold(const std::string& driver, Clock::time_point now) {
    merging_ = false;
    until_ = now + std::chrono::duration_cast<Clock::duration>(time_);
    driver_ = driver;
}

void HeldScene::end() {
    session_.forget(driver_);
    session_.keepOnly({}, {});
    replace();
}

void HeldScene::replace() {
    until_.reset();
    merging_ = false;
    origins_.clear();
}

void HeldScene::beginMerge() {
    until_.reset();
    merging_ = true;
    emitters_.clear();
    sources_.clear();
    stated_.clear();
    playing_.clear();
}

bool HeldScene::merge(
    const Orvel::CommandEvent& event, const std::string& client, std::int64_t time, double pitch) {
    const int id = event.objectId;
    switch (event.command) {
    case Orvel::CmdCreateSource:
        sources_.insert(id);
        return false;
    case Orvel::CmdPlaySource:
    case Orvel::CmdPauseSource:
    case Orvel::CmdStopSource: { // would spread to all of its emitters
        stated_.insert(id);
        const Orvel::Source* source = world_.getSource(id);
        return source != nullptr && source->state() == stateOf(event.command);
    }
    case Orvel::CmdCreateEmitter:
        return mergeEmitter(event, client);
    case Orvel::CmdPlayEmitter:
    case Orvel::CmdPauseEmitter:
        playing_.insert(id);
        return false;
    case Orvel::CmdSetEmitterPosition: {
        Orvel::Emitter* emitter = world_.getEmitter(id);
        if (emitter == nullptr || session_.isLocal(id) ||
            emitter->state() != Orvel::WorldPart::PLAY) {
            return false;
        }
        if (isInPhase(event, *emitter, time, pitch)) {
            return true;
        }
        stopAlone(*emitter); // it plays again from the right position
        return false;
    }
    case Orvel::CmdEndReplay:
        endMerge();
        return false;
    default:
        return false;
    }
}

bool HeldScene::mergeEmitter(const Orvel::CommandEvent& event, const std::string& client) {
    const auto* create = dynamic_cast<const Orvel::CreateEmitterEvent*>(&event);
    Orvel::Emitter* emitter = world_.getEmitter(event.objectId);
    if (create == nullptr || session_.isLocal(event.objectId)) {
        return false; // the session refuses it
    }
    emitters_.insert(event.objectId);
    if (emitter == nullptr) {
        return false;
    }
    if (create->labels != emitter->labels()) {
        delete emitter;
        return false;
    }
    session_.adopt(event.objectId, client);
    return true;
}

bool HeldScene::isInPhase(
    const Orvel::CommandEvent& event, const Orvel::Emitter& emitter, std::int64_t time,
    double pitch) const {
    const auto* position = dynamic_cast<const Orvel::PositionEvent*>(&event);
    const auto origin = origins_.find(emitter.id());
    if (position == nullptr || origin == origins_.end()) {
        return true; // nothing says that it is not
    }
    const double played = static_cast<double>(time - origin->second) * pitch;
    return std::abs(played - static_cast<double>(position->position)) < kMaxOff;
}

void HeldScene::endMerge() {
    merging_ = false;
    session_.keepOnly(emitters_, sources_);
    for (const int id : emitters_) { // the state NONE is not in a replay
        Orvel::Emitter* emitter = world_.getEmitter(id);
        if (emitter != nullptr && !playing_.contains(id) && isActive(*emitter)) {
            stopAlone(*emitter);
        }
    }
    for (const int id : sources_) { // likewise
        Orvel::Source* source = world_.getSource(id);
        if (source != nullptr && !stated_.contains(id) && isActive(*source) &&
            std::ranges::none_of(source->connectedEmitters(), [](const auto& entry) {
                return isActive(*entry.second);
            })) {
            source->setState(Orvel::WorldPart::STOP);
        }
    }
}

void HeldScene::started(const Orvel::Emitter& emitter, std::int64_t time, double pitch) {
    if (pitch <= 0.0 ||
        (emitter.state() == Orvel::WorldPart::PAUSE && emitter.startOffset() <= 0.0)) {
        origins_.erase(emitter.id()); // where it is is not known here
        return;
    }
    origins_[emitter.id()] = time - std::llround(emitter.startOffset() * 1e9 / pitch);
}

void HeldScene::pitchChanged(
    const Orvel::Source& source, std::int64_t time, double before, double after) {
    for (const auto& [id, emitter] : source.connectedEmitters()) {
        const auto origin = origins_.find(id);
        if (origin != origins_.end()) {
            origin->second =
                after > 0.0
                    ? time -
                          std::llround(static_cast<double>(time - origin->second) * before / after)
                    : time;
        }
    }
}

} // namespace Show
