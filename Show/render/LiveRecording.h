#pragma once

#include <Show/LevelMeter.h>
#include <Show/render/FrameSource.h>
#include <Show/render/WavWriter.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace Show {

/// Writes the output of a back end to a 16-bit WAV file in real time, as a sound card
/// would pull it. If the machine was too slow for a while it catches up, so the file is never
/// shorter than the time passed. The file can be read at any time, up to the last full second. The
/// source must outlive it. Confined to the world's thread.
class LiveRecording {
public:
    using Clock = std::chrono::steady_clock;

    /// The usual length of a block.
    static constexpr std::chrono::milliseconds kBlock{5};

    /// Creates the file; its first frame corresponds to `begin`. Throws OutputError.
    LiveRecording(FrameSource& source, const std::string& path, Clock::time_point begin);

    /// Renders the frames that are due, neither very few nor too many in one call. Returns false if
    /// the file is full. Throws OutputError.
    bool advance(Clock::time_point now);
    /// When advance() is next due.
    [[nodiscard]] Clock::time_point next() const;
    /// Renders up to `end` and completes the file. Throws OutputError.
    void finish(Clock::time_point end);

    [[nodiscard]] const LevelMeter& levels() const noexcept { return perSecond_; }
    [[nodiscard]] double seconds() const { return static_cast<double>(frames_) / rate_; }
    [[nodiscard]] std::uint64_t clipped() const noexcept { return writer_.clipped(); }
    /// The largest lag behind the clock, in seconds.
    [[nodiscard]] double worstLag() const noexcept { return worstLag_; }

private:
    [[nodiscard]] std::uint64_t framesUntil(Clock::time_point time) const;
    void render(std::uint64_t frames);

    FrameSource& source_;
    double rate_;
    Clock::time_point begin_;
    WavWriter writer_;
    LevelMeter perSecond_;
    std::uint64_t frames_ = 0;
    double worstLag_ = 0.0;
    std::vector<float> samples_;
};

} // namespace Show
