#include "SceneLength.h"

#include "ScenePlayer.h"

#include <Orvel/Emitter.h>
#include <Orvel/SilentBackend.h>
#include <Orvel/Source.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <utility>

namespace OrvelTool {

namespace {

/// A back end that keeps account of how far each emitter's sound has been played.
class PlayClock : public Orvel::SilentBackend {
public:
    explicit PlayClock(Orvel::World& world) : SilentBackend(world, nullptr) {}

    void setLength(int source, double seconds) { clocks_[source].length = seconds; }

    /// Lets the time pass; what happens from now on happens then.
    void passTo(double seconds, const std::map<int, Ramp<float>>& pitchRamps) {
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

    /// When the last of the sounds that play now will have ended.
    double end() {
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

    void destroySource(Orvel::Source& source) override { clocks_.erase(source.id()); }
    void setSourceParam(Orvel::Source& source) override {
        clockAt(source.id(), now_).pitch = source.pitch();
    }
    void destroyEmitter(Orvel::Emitter& emitter) override { voices_.erase(emitter.id()); }
    void setEmitterConnection(Orvel::Emitter& emitter) override { voices_.erase(emitter.id()); }
    void setEmitterState(Orvel::Emitter& emitter) override {
        if (emitter.source() == nullptr) {
            return;
        }
        Voice& voice = voices_[emitter.id()];
        const Clock& clock = clockAt(emitter.source()->id(), now_);
        switch (emitter.state()) {
        case PLAY:
            voice.begin = clock.played - std::exchange(voice.position, 0.0);
            voice.playing = true;
            break;
        case PAUSE:
            if (voice.playing) {
                voice.position = clock.played - voice.begin;
                if (voice.position >= clock.length) { // it had ended, or is in a later round
                    const bool loop = emitter.source()->loop() && clock.length > 0.0;
                    voice.position = loop ? std::fmod(voice.position, clock.length) : 0.0;
                }
            }
            voice.playing = false;
            break;
        case STOP:
        case NONE:
            voice = {};
            break;
        }
    }

private:
    static constexpr auto NONE = Orvel::WorldPart::NONE;
    static constexpr auto PLAY = Orvel::WorldPart::PLAY;
    static constexpr auto PAUSE = Orvel::WorldPart::PAUSE;
    static constexpr auto STOP = Orvel::WorldPart::STOP;

    /// How far a sound would have come that had played since the beginning.
    struct Clock {
        double at = 0.0;
        double played = 0.0; // seconds of the sound, at that time
        double pitch = 1.0;
        double length = 0.0; // seconds of the sound
    };
    struct Voice {
        bool playing = false;
        double begin = 0.0;    // on the source's clock, while playing
        double position = 0.0; // seconds of the sound, while paused
    };

    Clock& clockAt(int source, double seconds) {
        Clock& clock = clocks_[source];
        clock.played += (seconds - clock.at) * clock.pitch;
        clock.at = seconds;
        return clock;
    }

    double now_ = 0.0;
    std::map<int, Clock> clocks_; // by source
    std::map<int, Voice> voices_; // by emitter
};

/// The scene without what changes neither when a sound plays nor how fast.
Scene withoutMovement(const Scene& scene) {
    Scene result;
    result.sources = scene.sources;
    result.emitters = scene.emitters;
    for (const Change& change : scene.timeline) {
        if (change.target == Change::Target::Source ||
            (change.target == Change::Target::Emitter &&
             (change.newEmitter || change.destroy || change.reconnect || change.state))) {
            Change& kept = result.timeline.emplace_back(change);
            kept.position.reset();
            kept.rotation.reset();
            kept.maxBack.reset();
            kept.maxFront.reset();
            kept.minBack.reset();
            kept.minFront.reset();
            kept.gain.reset();
            kept.value.reset();
        }
    }
    return result;
}

/// A world that cleans up behind itself.
class OwnWorld : public Orvel::World {
public:
    OwnWorld() = default;
    OwnWorld(const OwnWorld&) = delete;
    OwnWorld& operator=(const OwnWorld&) = delete;
    ~OwnWorld() override {
        clearWorld();
        deleteAllBackends();
    }
};

} // namespace

double playingEnd(const Scene& scene, const SoundBank& sounds, Orvel::World& world) {
    double done = 0.0;
    for (const Change& change : scene.timeline) {
        done = std::max(done, change.at + change.over);
    }
    const Scene still = withoutMovement(scene);
    OwnWorld shadow;
    auto* clock = new PlayClock(shadow); // the world deletes it
    ScenePlayer player(still, sounds, shadow, [&](Orvel::Source& source, const Sound& sound) {
        double length = 0.0;
        if (const Samples* samples = sounds.find(sound)) {
            length = samples->seconds();
        } else if (const Orvel::Source* original = world.getSource(source.id())) {
            length = original->duration();
        }
        clock->setLength(source.id(), length);
    });
    player.start();
    double now = 0.0;
    for (;;) {
        const double next = player.nextChange(now);
        if (!std::isfinite(next)) {
            return std::max(done, clock->end());
        }
        clock->passTo(next, player.pitchRamps());
        player.advance(next);
        now = next;
    }
}

} // namespace OrvelTool
