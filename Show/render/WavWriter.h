#pragma once

#include <Show/SampleFormat.h>
#include <Show/detail/OutputFile.h>

#include <Orvel/OutputLayout.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace Show {

/// Converts samples to 16-bit integers, clipped at full scale; returns how many were clipped.
std::uint64_t toIntegers(std::span<const float> samples, std::vector<std::int16_t>& integers);

/// Writes a WAV file or stream, see OutputFile: of more than two channels as WAVE_FORMAT_EXTENSIBLE
/// with a channel mask. The same samples give the same bytes.
/// Confined to one thread at a time.
class WavWriter {
public:
    using Unfinished = OutputFile::Unfinished;

    /// Creates the file, `rate` in Hz. `frames` is the number of frames, if known: the header of a
    /// stream cannot be corrected at the end, and without it has the largest sizes, which readers
    /// take for unknown. Throws OutputError.
    WavWriter(
        const std::string& path, unsigned rate, SampleFormat format,
        std::optional<std::uint64_t> frames = {}, Unfinished unfinished = Unfinished::Removed,
        const Orvel::OutputLayout& layout = Orvel::kOutputLayouts[0]);
    WavWriter(const WavWriter&) = delete;
    WavWriter& operator=(const WavWriter&) = delete;
    ~WavWriter();

    /// The largest number of frames in a WAV file of this format, whose sizes have 32 bits.
    static std::uint64_t
    maxFrames(SampleFormat format, const Orvel::OutputLayout& layout = Orvel::kOutputLayouts[0]);

    /// The header of a stream, which libsndfile writes to seekable files only; without a number of
    /// frames as in the constructor.
    static std::string streamHeader(
        unsigned rate, SampleFormat format, std::optional<std::uint64_t> frames,
        const Orvel::OutputLayout& layout);

    /// Appends whole interleaved frames, in the order of the layout. Throws OutputError.
    void write(std::span<const float> samples);
    /// Updates the header, so that the file is readable as it is, whatever happens later.
    void updateHeader();
    /// Completes the file and gives it its name. Throws OutputError.
    void finish();

    /// Number of samples that were clipped; 0 for f32.
    [[nodiscard]] std::uint64_t clipped() const noexcept { return clipped_; }

private:
    struct Sound;

    OutputFile file_;
    SampleFormat format_;
    unsigned channels_;
    std::unique_ptr<Sound> sound_;
    std::uint64_t clipped_ = 0;
    std::vector<std::int16_t> integers_;
};

} // namespace Show
