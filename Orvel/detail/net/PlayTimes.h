#pragma once

#include <Orvel/WorldPart.h>

#include <cstdint>
#include <optional>
#include <unordered_map>

namespace Orvel {
class Emitter;
class Source;
} // namespace Orvel

namespace Orvel::detail {

/// Where each playing sound of a scene is, for servers that come late. Times are nanoseconds of one
/// clock and do not decrease; positions are nanoseconds of the sound, as if it were endless, so no
/// duration has to be known. Confined.
class PlayTimes {
public:
    void setSourceParam(const Source& source, std::int64_t now);
    void setEmitterState(const Emitter& emitter, std::int64_t now);
    /// Connected anew, it does not play until its next state.
    void setEmitterConnection(const Emitter& emitter) { emitters_.erase(idOf(emitter)); }
    void forget(const Source& source);
    void forget(const Emitter& emitter) { emitters_.erase(idOf(emitter)); }
    void clear();

    /// Nothing if it neither plays nor pauses.
    [[nodiscard]] std::optional<std::int64_t>
    position(const Emitter& emitter, std::int64_t now) const;

private:
    /// How much of it an emitter that plays all the time would have played.
    struct Clock {
        double played = 0.0;
        std::int64_t at = 0;
        double pitch = 1.0;

        [[nodiscard]] double playedAt(std::int64_t now) const {
            return played + static_cast<double>(now - at) * pitch;
        }
    };
    struct Voice {
        bool playing = false;
        double begin = 0.0;    // what its source's clock showed at its position 0, if it plays
        double position = 0.0; // if it pauses
    };

    static int idOf(const Emitter& emitter);
    Clock& clockOf(const Source& source, std::int64_t now);

    std::unordered_map<int, Clock> sources_;
    std::unordered_map<int, Voice> emitters_; // that play or pause
};

} // namespace Orvel::detail
