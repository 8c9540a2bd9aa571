#pragma once

#include <Show/scene/Ramp.h>

#include <Orvel/Emitter.h>
#include <Orvel/SilentBackend.h>
#include <Orvel/Source.h>

#include <map>

namespace Show {

/// A back end that plays nothing and keeps account of how far each emitter's sound has been played.
/// Confined to its world's thread.
class PlayClock : public Orvel::SilentBackend {
public:
    explicit PlayClock(Orvel::World& world, const char* params = nullptr)
        : SilentBackend(world, params) {}

    /// How many seconds the sound of a source takes; known by itself for samples.
    void setLength(int source, double seconds) { clocks_[source].length = seconds; }
    /// Lets the time pass; what happens from now on happens then. Times must not go down.
    void passTo(double seconds, const std::map<int, Ramp<float>>& pitchRamps);

    /// When the last of the sounds that play now will have ended, a looped one having played once.
    double end();
    /// How many seconds of an emitter's sound have been played; those of all rounds, if it loops.
    double played(const Orvel::Emitter& emitter);
    /// Whether an emitter's sound is one that began, does not loop, and is over.
    bool isOver(const Orvel::Emitter& emitter);

    void destroySource(Orvel::Source& source) override { clocks_.erase(source.id()); }
    void setSourceData(Orvel::Source& source) override;
    void setSourceParam(Orvel::Source& source) override;
    void destroyEmitter(Orvel::Emitter& emitter) override { voices_.erase(emitter.id()); }
    void setEmitterConnection(Orvel::Emitter& emitter) override { voices_.erase(emitter.id()); }
    void setEmitterState(Orvel::Emitter& emitter) override;

private:
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

    Clock& clockAt(int source, double seconds);

    double now_ = 0.0;
    std::map<int, Clock> clocks_; // by source
    std::map<int, Voice> voices_; // by emitter
};

} // namespace Show
