#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <memory>
#include <sys/uio.h>
#include <vector>

namespace Corvid::detail {

/// A stream of frames, stored in chunks from begin() to end(); positions count from its first byte
/// and only grow. Bytes are never moved, so that they can be read while others are appended. Not
/// synchronised.
class ChunkQueue {
public:
    static constexpr std::size_t kChunkBytes = std::size_t{64} << 10U;

    /// `spares`: number of empty chunks kept for reuse.
    explicit ChunkQueue(std::size_t spares) : maxSpares_(spares) {}

    [[nodiscard]] std::uint64_t begin() const noexcept { return begin_; }
    [[nodiscard]] std::uint64_t end() const noexcept { return end_; }
    [[nodiscard]] std::size_t bytesKept() const noexcept {
        return (chunks_.size() + spares_.size()) * kChunkBytes;
    }

    /// Appends a whole frame. Returns true if a new chunk was started, which is the time to trim.
    bool append(const std::byte* bytes, std::size_t size) {
        if (size <= room_) { // the usual case
            std::memcpy(tail_, bytes, size);
            tail_ += size;
            room_ -= size;
            end_ += size;
            return false;
        }
        appendAcross(bytes, size);
        return true;
    }

    /// Lists the memory of [from, to) in at most `most` pieces; returns the number of pieces.
    std::size_t gather(std::uint64_t from, std::uint64_t to, iovec* pieces, std::size_t most) const;

    /// The position, from begin() to end(), of the first frame that starts at or after `position`.
    [[nodiscard]] std::uint64_t frameStart(std::uint64_t position) const;

    /// Frees everything before the position.
    void trim(std::uint64_t position);

private:
    struct Chunk {
        std::uint64_t firstFrame; // position of the first frame that starts here or later
        std::array<std::byte, kChunkBytes> bytes;
    };

    void appendAcross(const std::byte* bytes, std::size_t size);

    std::deque<std::unique_ptr<Chunk>> chunks_;
    std::vector<std::unique_ptr<Chunk>> spares_;
    std::size_t maxSpares_;
    std::uint64_t first_ = 0; // position of the first byte of the first chunk
    std::uint64_t begin_ = 0;
    std::uint64_t end_ = 0;
    std::byte* tail_ = nullptr; // where the next byte goes, and the space there
    std::size_t room_ = 0;
};

} // namespace Corvid::detail
