#pragma once

#include <Orvel/detail/voices/Sound.h>
#include <Vessa/Mutex.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <vector>

namespace Orvel::detail {

/// Reads a sound ahead of its playing, from any frame on and around the seam of its loop. One
/// thread fills it, another takes the chunks.
///
/// The length is that of the file's header: what a damaged file lacks is silence, so that the time
/// of a sound does not depend on its data.
class SoundStream {
public:
    struct Chunk {
        std::int64_t first = 0; ///< its first frame, counted through all rounds of a loop
        std::vector<std::byte> samples;
    };

    /// Starts at a frame, counted through all rounds. `sound` is ready.
    SoundStream(std::shared_ptr<const Sound> sound, std::int64_t first, bool loop);

    /// Whether the next chunk is in memory, so that fill() takes no time.
    [[nodiscard]] bool isInMemory() const noexcept;

    /// Reads a chunk; false if enough is ready, or there is no more.
    bool fill() ORVEL_EXCLUDES(mutex_);
    /// The next chunk, if one is ready.
    std::optional<Chunk> take() ORVEL_EXCLUDES(mutex_);

private:
    static constexpr double kChunkSeconds = 0.1;
    static constexpr std::size_t kMaxReady = 4;

    /// Appends frames from `frame` of the sound on, at least one and at most `most`.
    void read(std::int64_t frame, std::int64_t most, std::vector<std::byte>& to);

    const std::shared_ptr<const Sound> sound_;
    const bool loop_;
    const std::int64_t chunkFrames_;
    // Of the thread that fills it.
    std::int64_t next_;
    std::optional<SoundFile> file_;
    std::vector<float> block_;

    Vessa::Mutex mutex_;
    std::deque<Chunk> ready_ ORVEL_GUARDED_BY(mutex_);
};

} // namespace Orvel::detail
