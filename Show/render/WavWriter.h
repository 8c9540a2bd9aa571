#pragma once

#include <Show/detail/OutputFile.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace Show {

/// How samples are stored in a file.
enum class SampleFormat {
    s16, ///< 16-bit integers, rounded, and limited where they exceed full scale
    f32, ///< 32-bit floats, as they are
};

/// Writes a stereo WAV file or stream, see OutputFile. The same samples give the same bytes.
/// Confined to one thread at a time.
class WavWriter {
public:
    static constexpr unsigned kChannels = 2;

    using Unfinished = OutputFile::Unfinished;

    /// Creates the file, `rate` in Hz. `frames` is how many will be written, if that is known: the
    /// header of a stream cannot be corrected at the end, and has the largest sizes without it,
    /// which readers take for unknown. Throws OutputError.
    WavWriter(
        const std::string& path, unsigned rate, SampleFormat format,
        std::optional<std::uint64_t> frames = {}, Unfinished unfinished = Unfinished::Removed);
    WavWriter(const WavWriter&) = delete;
    WavWriter& operator=(const WavWriter&) = delete;
    ~WavWriter();

    /// The most frames that a WAV file of this format can count, whose sizes are 32 bit wide.
    static std::uint64_t mostFrames(SampleFormat format);

    /// Appends whole frames, left and right in turn. Throws OutputError.
    void write(std::span<const float> samples);
    /// Makes the file one that can be read as far as it has come, whatever happens from here on.
    void updateHeader();
    /// Completes the file and gives it its name. Throws OutputError.
    void finish();

    /// How many samples were beyond full scale and limited; 0 for f32.
    [[nodiscard]] std::uint64_t clipped() const noexcept { return clipped_; }

private:
    struct Sound;

    OutputFile file_;
    SampleFormat format_;
    std::unique_ptr<Sound> sound_;
    std::uint64_t clipped_ = 0;
    std::vector<std::int16_t> integers_;
};

} // namespace Show
