#pragma once

#include <Show/scene/Ramp.h>

#include <Orvel/Emitter.h>
#include <Orvel/SilentBackend.h>
#include <Orvel/Source.h>

#include <map>

namespace Show {

/// A back end that plays nothing and tracks how far each emitter's sound has been played. Confined
/// to its world's thread.
class PlayClock : public Orvel::SilentBackend {
public:
    explicit PlayClock(Orvel::World& world, const char* params = nullptr)
        : SilentBackend(world, params) {}

    /// Sets the length of a source's sound in seconds; known already for samples.
    void setLength(int source, double seconds) { clocks_[source].length = seconds; }
    /// Advances the time; later changes happen at that time. Times must not decrease.
    void passTo(double seconds, const std::map<int, Ramp<float>>& pitchRamps);

    /// When the last of the playing sounds ends, a looped one after playing once.
    double end();
    /// Seconds played of an emitter's sound, over all rounds if it loops.
    double played(const Orvel::Emitter& emitter);
    /// Whether an emitter's sound has started, does not loop, and has ended.
    bool isOver(const Orvel::Emitter& emitter);

    void resetBackend() override { voices_.clear(); }
    void destroySource(Orvel::Source& source) override { clocks_.erase(source.id()); }
    void setSourceData(Orvel::Source& source) override;
    void setSourceParam(Orvel::Source& source) override;
    void destroyEmitter(Orvel::Emitter& emitter) override { voices_.erase(emitter.id()); }
    void setEmitterConnection(Orvel::Emitter& emitter) override { voices_.erase(emitter.id()); }
    void setEmitterState(Orvel::Emitter& emitter) override;

private:
    /// The position that a sound would have if it had played from the beginning.
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
