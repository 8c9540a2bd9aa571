#include <Orvel/detail/net/PlayTimes.h>

#include <Orvel/Emitter.h>
#include <Orvel/Source.h>

#include <algorithm>
#include <cmath>

namespace Orvel::detail {

int PlayTimes::idOf(const Emitter& emitter) {
    return emitter.id();
}

PlayTimes::Clock& PlayTimes::clockOf(const Source& source, std::int64_t now) {
    const auto [entry, isNew] = sources_.try_emplace(source.id());
    if (isNew) {
        entry->second.pitch = static_cast<double>(source.pitch());
        entry->second.at = now;
    }
    return entry->second;
}

void PlayTimes::setSourceParam(const Source& source, std::int64_t now) {
    Clock& clock = clockOf(source, now);
    clock.played = clock.playedAt(now);
    clock.at = now;
    clock.pitch = static_cast<double>(source.pitch());
}

void PlayTimes::setEmitterState(const Emitter& emitter, std::int64_t now) {
    const WorldPart::State state = emitter.state();
    if (emitter.source() == nullptr || state == WorldPart::STOP || state == WorldPart::NONE) {
        emitters_.erase(emitter.id());
        return;
    }
    const double played = clockOf(*emitter.source(), now).playedAt(now);
    const auto [entry, isNew] = emitters_.try_emplace(emitter.id());
    Voice& voice = entry->second;
    if (isNew) {
        voice.position = std::max(emitter.startOffset(), 0.0) * 1e9;
    }
    if (state == WorldPart::PLAY && !voice.playing) {
        voice.playing = true;
        voice.begin = played - voice.position;
    } else if (state == WorldPart::PAUSE && voice.playing) {
        voice.playing = false;
        voice.position = played - voice.begin;
    }
}

void PlayTimes::forget(const Source& source) {
    sources_.erase(source.id());
}

void PlayTimes::clear() {
    sources_.clear();
    emitters_.clear();
}

std::optional<std::int64_t> PlayTimes::position(const Emitter& emitter, std::int64_t now) const {
    const auto voice = emitters_.find(emitter.id());
    if (voice == emitters_.end() || emitter.source() == nullptr) {
        return std::nullopt;
    }
    const auto clock = sources_.find(emitter.source()->id());
    const bool moves = voice->second.playing && clock != sources_.end();
    return std::llround(
        moves ? clock->second.playedAt(now) - voice->second.begin : voice->second.position);
}

} // namespace Orvel::detail
