#include <Show/player/PlayClock.h>

#include <Orvel/World.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace Show {

void PlayClock::passTo(double seconds, const std::map<int, Ramp<float>>& pitchRamps) {
    for (const auto& [id, ramp] : pitchRamps) {
        Clock& clock = clockAt(id, now_);
        const double pitch = ramp.at(seconds);
        // Exact, because the pitch changes linearly.
        clock.played += (seconds - now_) * (clock.pitch + pitch) / 2.0;
        clock.pitch = pitch;
        clock.at = seconds;
    }
    now_ = seconds;
}

double PlayClock::end() {
    double latest = now_;
    for (const auto& [id, voice] : voices_) {
        const Orvel::Emitter* emitter = world().getEmitter(id);
        if (!voice.playing || emitter == nullptr || emitter->source() == nullptr) {
            continue;
        }
        const Clock& clock = clockAt(emitter->source()->id(), now_);
        const double left = clock.length - (clock.played - voice.begin);
        if (left > 0.0) {
            latest = std::max(latest, now_ + left / clock.pitch);
        }
    }
    return latest;
}

double PlayClock::played(const Orvel::Emitter& emitter) {
    const auto found = voices_.find(emitter.id());
    if (found == voices_.end() || emitter.source() == nullptr) {
        return 0.0;
    }
    const Voice& voice = found->second;
    return voice.playing ? clockAt(emitter.source()->id(), now_).played - voice.begin
                         : voice.position;
}

bool PlayClock::isOver(const Orvel::Emitter& emitter) {
    const auto voice = voices_.find(emitter.id());
    if (voice == voices_.end() || !voice->second.playing || emitter.source() == nullptr ||
        emitter.source()->loop()) {
        return false;
    }
    const Clock& clock = clockAt(emitter.source()->id(), now_);
    return clock.length > 0.0 && clock.played - voice->second.begin >= clock.length;
}

void PlayClock::setSourceData(Orvel::Source& source) {
    const double bytes = source.sampleRate() * (source.bitsPerSample() / 8.0) * source.channels();
    const bool samples = source.dataKind() == Orvel::Source::PCM_SD && bytes > 0.0;
    setLength(source.id(), samples ? static_cast<double>(source.data().size()) / bytes : 0.0);
}

void PlayClock::setSourceParam(Orvel::Source& source) {
    clockAt(source.id(), now_).pitch = source.pitch();
}

void PlayClock::setEmitterState(Orvel::Emitter& emitter) {
    if (emitter.source() == nullptr) {
        return;
    }
    Voice& voice = voices_[emitter.id()];
    const Clock& clock = clockAt(emitter.source()->id(), now_);
    if (emitter.startOffset() > 0.0) {
        voice = {.position = emitter.startOffset()};
    }
    switch (emitter.state()) {
    case Orvel::WorldPart::PLAY:
        voice.begin = clock.played - std::exchange(voice.position, 0.0);
        voice.playing = true;
        break;
    case Orvel::WorldPart::PAUSE:
        if (voice.playing) {
            voice.position = clock.played - voice.begin;
            if (clock.length > 0.0 &&
                voice.position >= clock.length) { // it has ended, or is in a later round
                voice.position =
                    emitter.source()->loop() ? std::fmod(voice.position, clock.length) : 0.0;
            }
        }
        voice.playing = false;
        break;
    case Orvel::WorldPart::STOP:
    case Orvel::WorldPart::NONE:
        voice = {};
        break;
    }
}

PlayClock::Clock& PlayClock::clockAt(int source, double seconds) {
    Clock& clock = clocks_[source];
    clock.played += (seconds - clock.at) * clock.pitch;
    clock.at = seconds;
    return clock;
}

} // namespace Show
