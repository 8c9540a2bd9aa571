#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include <orvel_show_export.h>

namespace Show {

/// The level of a section of one channel, as a factor of full scale. Immutable values.
struct Level {
    double peak = 0.0; ///< largest magnitude
    double rms = 0.0;  ///< root mean square
};

/// A linear level in dB below full scale, 20 log10(level); minus infinity for 0.
ORVEL_SHOW_EXPORT double toDecibels(double level);

/// The name of a channel among so many, such as "left" or "back right".
ORVEL_SHOW_EXPORT const char* channelName(std::size_t channels, std::size_t channel);

/// Measures samples per window, and in total. Confined to one thread at a time. Stores a few
/// numbers per window, not the samples.
class ORVEL_SHOW_EXPORT LevelMeter {
public:
    using Levels = std::vector<Level>; ///< of each channel

    /// Windows of `seconds` at `rate` frames per second. Their limits are rounded to frames, so
    /// that window k starts at second k * `seconds` without drift. Both must be above 0.
    LevelMeter(double rate, double seconds, std::size_t channels = 2);

    /// Adds interleaved frames; an incomplete one at the end is ignored.
    void add(std::span<const float> samples);

    /// The windows so far, including the incomplete last one, `each` of them merged into one.
    [[nodiscard]] std::vector<Levels> windows(std::size_t each = 1) const;
    /// The total so far; silence if nothing was added.
    [[nodiscard]] Levels all() const;

    [[nodiscard]] std::size_t channels() const noexcept { return channels_; }
    [[nodiscard]] std::uint64_t frames() const noexcept { return all_.frames + current_.frames; }
    [[nodiscard]] double windowSeconds() const noexcept { return windowSeconds_; }

private:
    struct Sum {
        /// The sums of one channel.
        struct Channel {
            double peak = 0.0;
            double squares = 0.0;
        };
        std::vector<Channel> channels;
        std::uint64_t frames = 0;

        explicit Sum(std::size_t count) : channels(count) {}
        void add(const Sum& other);
        [[nodiscard]] Levels levels() const;
    };

    double rate_;
    double windowSeconds_;
    std::size_t channels_;
    std::uint64_t windowEnd_; // the first frame after the current window
    std::vector<Sum> done_;
    Sum current_;
    Sum all_; // of the completed windows
};

} // namespace Show
