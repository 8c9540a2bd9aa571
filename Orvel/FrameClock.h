#pragma once

#include <chrono>
#include <cmath>
#include <cstdint>

namespace Orvel {

/// The time of an output of sound: which of its frames is heard when. Frames are counted from the
/// construction of the back end on, without a break when a device is lost or comes. A value is
/// valid for some seconds; ask again before each use. Immutable.
struct FrameClock {
    /// CLOCK_MONOTONIC.
    using Time = std::chrono::steady_clock::time_point;

    Time time{};        ///< of `heard`
    double heard = 0.0; ///< the frame that leaves the device at `time`
    double rate = 0.0;  ///< frames per second of CLOCK_MONOTONIC, as measured
    /// Nominal frames per second, by which pitch and durations are reckoned.
    unsigned nominalRate = 0;
    std::int64_t mixed = 0; ///< the next frame that is mixed
    /// The first frame at which a start that is asked for now begins exactly; see
    /// VoicesBackend::setStartFrame().
    std::int64_t soonest = 0;
    /// From the mixing of a frame until it is heard, as the device reports it.
    std::chrono::nanoseconds latency{};
    /// The number of times that a device has been opened. Between two of them, frames may be
    /// counted at another rate.
    unsigned opened = 0;
    /// False without a device: frames are counted by CLOCK_MONOTONIC, or pulled by the program.
    bool hasDevice = false;

    /// The frame that is heard at a time.
    [[nodiscard]] double frameAt(Time when) const noexcept {
        return heard + std::chrono::duration<double>(when - time).count() * rate;
    }
    /// The time at which a frame is heard. Needs a rate above 0.
    [[nodiscard]] Time timeOf(double frame) const noexcept {
        return time + std::chrono::nanoseconds(std::llround((frame - heard) / rate * 1e9));
    }
};

} // namespace Orvel
