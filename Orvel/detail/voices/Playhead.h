#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace Orvel::detail {

/// A moving position in a sound, counted as OpenAL Soft's mixer counts it: in frames of the sound
/// with 12 fractional bits. So a sound that is not mixed stays in phase with one that is.
struct Playhead {
    static constexpr std::int64_t kOne = 4096;           ///< a frame of the sound
    static constexpr std::int64_t kMaxStep = 255 * kOne; ///< the mixer's limit

    std::int64_t position = 0; ///< at `since`
    std::int64_t since = 0;    ///< a frame of the output; before it, the position stands still
    std::int64_t step = kOne;  ///< per frame of the output

    /// The position at a frame of the output, without regard to the sound's end.
    [[nodiscard]] std::int64_t at(std::int64_t now) const noexcept {
        return now > since ? along(now) : position;
    }
    /// The same for a sound that has always been moving: before its beginning, it may be negative.
    [[nodiscard]] std::int64_t along(std::int64_t now) const noexcept {
        return position + (now - since) * step;
    }
    void moveTo(std::int64_t now) noexcept {
        position = at(now);
        since = now;
    }
    static std::int64_t stepOf(float pitch, unsigned soundRate, unsigned outputRate) noexcept {
        const float ratio = pitch * static_cast<float>(soundRate) / static_cast<float>(outputRate);
        if (!(ratio < 255.0F)) {
            return kMaxStep;
        }
        return std::max<std::int64_t>(std::lrint(ratio * static_cast<float>(kOne)), 1);
    }
};

} // namespace Orvel::detail
