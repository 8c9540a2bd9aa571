#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace Show {

/// How loud a stretch of one channel is, as a factor of full scale. Immutable values.
struct Level {
    double peak = 0.0; ///< the largest magnitude
    double rms = 0.0;  ///< the root of the mean square
};

/// A linear level in dB below full scale, 20 log10(level); minus infinity for 0.
double toDecibels(double level);

/// Measures stereo samples window by window, and as a whole. Confined to one thread at a time.
/// It keeps a few numbers per window, never the samples.
class LevelMeter {
public:
    static constexpr std::size_t kChannels = 2;
    using Levels = std::array<Level, kChannels>; ///< left, right

    /// Windows of `seconds` at `rate` frames a second. Their limits are rounded to frames, so that
    /// window k begins at second k * `seconds` however many there are. Both must be above 0.
    LevelMeter(double rate, double seconds);

    /// Takes the next frames, left and right in turn; an odd sample at the end is ignored.
    void add(std::span<const float> samples);

    /// The windows up to now, the last one as far as it is filled; `each` of them made one.
    [[nodiscard]] std::vector<Levels> windows(std::size_t each = 1) const;
    /// Everything up to now; silence when nothing was added.
    [[nodiscard]] Levels all() const;

    [[nodiscard]] std::uint64_t frames() const noexcept { return all_.frames + current_.frames; }
    [[nodiscard]] double windowSeconds() const noexcept { return windowSeconds_; }

private:
    struct Sum {
        std::array<double, kChannels> peak{};
        std::array<double, kChannels> squares{};
        std::uint64_t frames = 0;

        void add(const Sum& other);
        [[nodiscard]] Levels levels() const;
    };

    double rate_;
    double windowSeconds_;
    std::uint64_t windowEnd_; // the first frame after the current window
    std::vector<Sum> done_;
    Sum current_;
    Sum all_; // of the windows that are done
};

} // namespace Show
