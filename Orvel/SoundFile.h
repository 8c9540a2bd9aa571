#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

#include <orvel_export.h>

namespace Orvel {

class Source;

/// Decodes a sound file to PCM, whole or in pieces: WAV, FLAC, OGG, AIFF, MP3 and any other format
/// of the installed libsndfile. A source takes the result as its data:
///
///     Orvel::SoundFile file("bell.flac");
///     if (!file.giveTo(*source)) std::cerr << file.error() << '\n';
///
/// Confined to one thread at a time; different files may be read on different threads. Throws only
/// std::bad_alloc. A failure returns false or nothing, and error() has the reason.
class ORVEL_EXPORT SoundFile {
public:
    /// Limits of decode(), giveTo() and of opened files. Rates are in frames per second.
    static constexpr std::size_t kMaxBytes = std::size_t{1} << 30U;
    static constexpr unsigned kMinRate = 1000;
    static constexpr unsigned kMaxRate = 768000;

    enum class Channels {
        Mono, ///< mixed to one by their mean; only a mono sound is spatial
        Keep  ///< unchanged, one or two: a source takes no more
    };

    /// Interleaved 16-bit samples.
    struct ORVEL_EXPORT Pcm {
        unsigned rate = 0; ///< frames per second
        unsigned channels = 1;
        std::vector<std::int16_t> samples;

        [[nodiscard]] double seconds() const noexcept {
            return rate == 0 ? 0.0 : static_cast<double>(samples.size()) / channels / rate;
        }
        /// Copies the samples into a source, see Source::setData.
        void giveTo(Source& source) const;
    };

    /// The extensions of the readable formats, such as "flac" and "wav", sorted.
    [[nodiscard]] static std::set<std::string> extensions();

    /// Opens a regular file, without waiting, for instance for a pipe's writer. Check isOpen()
    /// afterwards.
    explicit SoundFile(const std::string& path);
    SoundFile(SoundFile&& other) noexcept;
    SoundFile& operator=(SoundFile&& other) noexcept;
    ~SoundFile();

    [[nodiscard]] bool isOpen() const noexcept;
    /// The reason of the latest failure, as a sentence that names the file; empty without one.
    [[nodiscard]] const std::string& error() const noexcept;

    /// Frames per second; 0 if the file is not open, as for all that follow.
    [[nodiscard]] unsigned rate() const noexcept;
    [[nodiscard]] unsigned channels() const noexcept;
    /// The length in frames according to the file's header, which may be wrong; 0 if unknown.
    [[nodiscard]] std::uint64_t frames() const noexcept;
    /// frames() as a time, in seconds.
    [[nodiscard]] double seconds() const noexcept;
    /// The next frame to read.
    [[nodiscard]] std::uint64_t position() const noexcept;

    /// Moves to a frame. Returns false, without effect, if that is beyond the end or impossible.
    bool seek(std::uint64_t frame);
    /// Reads as many whole interleaved frames as are left and fit; full scale is 1, which files of
    /// floats may exceed. Returns the number of frames: 0 at the end and, with an error(), where
    /// the file is damaged.
    std::size_t read(std::span<float> samples);
    /// The same as 16-bit integers: full scale is 32768, so that 16-bit files are unaltered. Larger
    /// values are clipped, and NaN becomes 0.
    std::size_t read(std::span<std::int16_t> samples);

    /// Decodes the whole file, from any position. Returns nothing if it is not open, is damaged,
    /// has no samples, takes more than `maxBytes` or, with Channels::Keep, has more than two
    /// channels.
    std::optional<Pcm> decode(Channels channels = Channels::Mono, std::size_t maxBytes = kMaxBytes);
    /// Decodes the whole file to the data of a source. Returns false if decode() fails; the source
    /// is then unchanged.
    bool giveTo(Source& source, Channels channels = Channels::Mono);

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace Orvel
