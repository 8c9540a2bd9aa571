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

/// Decodes a sound file to PCM, whole or in pieces: WAV, FLAC, OGG, AIFF, MP3 and whatever else
/// the installed libsndfile reads. A source takes the result as its data:
///
///     Orvel::SoundFile file("bell.flac");
///     if (!file.giveTo(*source)) std::cerr << file.error() << '\n';
///
/// Confined to one thread at a time; different files may be read on different threads. Nothing is
/// thrown but std::bad_alloc: a failure gives false or nothing, and error() says why.
class ORVEL_EXPORT SoundFile {
public:
    /// Limits of decode(), giveTo() and of what is opened. Rates are in frames a second.
    static constexpr std::size_t kMaxBytes = std::size_t{1} << 30U;
    static constexpr unsigned kMinRate = 1000;
    static constexpr unsigned kMaxRate = 768000;

    enum class Channels {
        Mono, ///< mixed to one by their mean; only a mono sound is spatial
        Keep  ///< as they are, one or two: a source takes no more
    };

    /// 16-bit samples, the channels interleaved.
    struct ORVEL_EXPORT Pcm {
        unsigned rate = 0; ///< frames a second
        unsigned channels = 1;
        std::vector<std::int16_t> samples;

        [[nodiscard]] double seconds() const noexcept {
            return rate == 0 ? 0.0 : static_cast<double>(samples.size()) / channels / rate;
        }
        /// Copies the samples into a source, see Source::setData.
        void giveTo(Source& source) const;
    };

    /// The extensions of the formats that can be read, such as "flac" and "wav", in order.
    [[nodiscard]] static std::set<std::string> extensions();

    /// Opens a regular file, without waiting for anything else, such as a pipe's writer. Look at
    /// isOpen() next.
    explicit SoundFile(const std::string& path);
    SoundFile(SoundFile&& other) noexcept;
    SoundFile& operator=(SoundFile&& other) noexcept;
    ~SoundFile();

    [[nodiscard]] bool isOpen() const noexcept;
    /// Why the latest failure happened, in a sentence that names the file; empty without one.
    [[nodiscard]] const std::string& error() const noexcept;

    /// Frames a second; 0 if the file is not open. So are all that follow.
    [[nodiscard]] unsigned rate() const noexcept;
    [[nodiscard]] unsigned channels() const noexcept;
    /// The length in frames by the file's header, which may be wrong; 0 if it does not say.
    [[nodiscard]] std::uint64_t frames() const noexcept;
    /// frames() as a time, in seconds.
    [[nodiscard]] double seconds() const noexcept;
    /// The frame that is read next.
    [[nodiscard]] std::uint64_t position() const noexcept;

    /// Goes to a frame. False, and the position stays, if that is beyond the end or impossible.
    bool seek(std::uint64_t frame);
    /// Reads as many whole frames as are left and fit, the channels interleaved; full scale is 1,
    /// which files of floats may exceed. Gives the number of frames: 0 at the end and, with an
    /// error(), where the file is damaged.
    std::size_t read(std::span<float> samples);
    /// The same as 16-bit integers: full scale is 32768, so that 16-bit files come through bit by
    /// bit; what exceeds it is limited, and what is no number becomes 0.
    std::size_t read(std::span<std::int16_t> samples);

    /// Decodes the whole file, wherever it stood. Nothing if it is not open, is damaged, holds no
    /// samples, takes more than `maxBytes` or, with Channels::Keep, has more than two channels.
    std::optional<Pcm> decode(Channels channels = Channels::Mono, std::size_t maxBytes = kMaxBytes);
    /// Decodes the whole file and makes it the data of a source. False if decode() gives nothing;
    /// the source then keeps what it has.
    bool giveTo(Source& source, Channels channels = Channels::Mono);

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace Orvel
