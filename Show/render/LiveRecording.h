#pragma once

#include <Show/LevelMeter.h>
#include <Show/render/FrameSource.h>
#include <Show/render/PcmStream.h>
#include <Show/render/WavWriter.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Show {

/// Writes the output of a back end to a 16-bit WAV file in real time, as a sound card
/// would pull it. If the machine was too slow for a while it catches up, so the file is never
/// shorter than the time passed. The file can be read at any time, up to the last full second.
/// Standard output and FIFOs are streams, see PcmStream, with the same header or raw. The source
/// must outlive it. Confined to the world's thread.
class LiveRecording {
public:
    using Clock = std::chrono::steady_clock;

    /// The usual length of a block.
    static constexpr std::chrono::milliseconds kBlock{5};

    /// Creates the file; its first frame corresponds to `begin`. `raw`: a stream has no header.
    /// `skew` is by how much its clock runs faster than this machine's, as that of a sound card
    /// does, as a fraction. Throws OutputError.
    LiveRecording(
        FrameSource& source, const std::string& path, bool raw, Clock::time_point begin,
        double skew = 0.0);

    /// Renders the frames that are due, neither very few nor too many in one call. Returns false if
    /// the file is full, or nobody reads standard output any more. Throws OutputError.
    bool advance(Clock::time_point now);
    /// Renders exactly up to the frame of a time. Returns by how much it was ahead of that already;
    /// negative if it was not. Throws OutputError.
    std::chrono::nanoseconds renderTo(Clock::time_point time);
    /// The time of the first frame.
    [[nodiscard]] Clock::time_point begin() const noexcept { return begin_; }
    /// By how much the frames so far, at their nominal rate, are ahead of this machine's clock, in
    /// seconds.
    [[nodiscard]] double lead() const {
        return static_cast<double>(frames_) * (1.0 / rate_ - 1.0 / clockRate_);
    }
    /// When advance() is next due.
    [[nodiscard]] Clock::time_point next() const;
    /// Renders up to `end` and completes the file. Throws OutputError.
    void finish(Clock::time_point end);

    [[nodiscard]] const LevelMeter& levels() const noexcept { return perSecond_; }
    [[nodiscard]] double seconds() const { return static_cast<double>(frames_) / rate_; }
    [[nodiscard]] std::uint64_t clipped() const noexcept {
        return file_ ? file_->clipped() : stream_->clipped();
    }
    /// Whether it is a stream that nobody reads any more.
    [[nodiscard]] bool isOver() const noexcept { return stream_ && stream_->isOver(); }
    /// What the reader of a stream was too slow for, in seconds.
    [[nodiscard]] double missedSeconds() const {
        return stream_ ? static_cast<double>(stream_->missed()) / rate_ : 0.0;
    }
    /// The largest lag behind the clock, in seconds.
    [[nodiscard]] double worstLag() const noexcept { return worstLag_; }

private:
    [[nodiscard]] std::uint64_t maxFrames() const;
    [[nodiscard]] std::uint64_t framesUntil(Clock::time_point time) const;
    void render(std::uint64_t frames);

    FrameSource& source_;
    double rate_;
    double clockRate_; // frames per second of this machine's clock
    Clock::time_point begin_;
    std::optional<WavWriter> file_; // or
    std::optional<PcmStream> stream_;
    LevelMeter perSecond_;
    std::uint64_t frames_ = 0;
    double worstLag_ = 0.0;
    std::vector<float> samples_;
};

} // namespace Show
