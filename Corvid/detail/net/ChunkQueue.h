#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <sys/uio.h>

namespace Corvid::detail {

/// A stream of frames, stored in chunks from begin() to end(); positions count from its first byte
/// and only grow. Bytes are never moved. One thread at a time appends and one reads; the two need
/// no common lock.
class ChunkQueue {
public:
    static constexpr std::size_t kChunkBytes = std::size_t{64} << 10U;

    /// `spares`: number of empty chunks kept for reuse.
    explicit ChunkQueue(std::size_t spares) : maxSpares_(spares) {}
    ChunkQueue(const ChunkQueue&) = delete;
    ChunkQueue& operator=(const ChunkQueue&) = delete;
    ~ChunkQueue();

    // For any thread.

    /// Everything before it can be read.
    [[nodiscard]] std::uint64_t end() const noexcept {
        return end_.load(std::memory_order_acquire);
    }
    [[nodiscard]] std::size_t bytesKept() const noexcept {
        return chunkCount_.load(std::memory_order_relaxed) * kChunkBytes;
    }

    // For the thread that appends.

    /// Appends a whole frame. Returns true if a new chunk was started, which is the time to trim.
    bool append(const std::byte* bytes, std::size_t size) {
        if (size > room_) {
            appendAcross(bytes, size);
            return true;
        }
        std::memcpy(tail_, bytes, size);
        advance(size);
        return false;
    }
    /// The same for a frame of known size, which `write` stores at the place that it is given.
    template <std::size_t size, class Write>
    [[gnu::always_inline]] bool append(const Write& write) {
        if (size > room_) [[unlikely]] {
            std::array<std::byte, size> frame;
            write(frame.data());
            appendAcross(frame.data(), size);
            return true;
        }
        write(tail_);
        advance(size);
        return false;
    }

    // For the thread that reads. Positions are at most a value of end().

    [[nodiscard]] std::uint64_t begin() const noexcept { return begin_; }
    /// Lists the memory of [from, to) in at most `most` pieces; returns the number of pieces.
    std::size_t gather(std::uint64_t from, std::uint64_t to, iovec* pieces, std::size_t most);
    /// The position of the first frame that starts at or after `position`.
    [[nodiscard]] std::uint64_t frameStart(std::uint64_t position);
    /// Frees everything before the position.
    void trim(std::uint64_t position);

private:
    struct Chunk {
        std::atomic<Chunk*> next = nullptr;
        std::uint64_t begin = 0;      // position of its first byte
        std::uint64_t firstFrame = 0; // position of the first frame that starts here or later
        std::array<std::byte, kChunkBytes> bytes;
    };

    void appendAcross(const std::byte* bytes, std::size_t size);
    void advance(std::size_t size) {
        tail_ += size;
        room_ -= size;
        publish(size);
    }
    void publish(std::size_t size) {
        end_.store(end_.load(std::memory_order_relaxed) + size, std::memory_order_release);
    }
    void reserve(std::size_t count);
    void findChunks();
    Chunk& chunkAt(std::uint64_t position);

    // The appending thread's.
    std::byte* tail_ = nullptr; // where the next byte goes, and the space there
    std::size_t room_ = 0;
    std::atomic<std::uint64_t> end_ = 0;
    std::atomic<Chunk*>* last_ = &first_; // where the next chunk is linked
    Chunk* ownSpares_ = nullptr;
    // Of both.
    std::atomic<Chunk*> spares_ = nullptr;
    std::atomic<Chunk*> first_ = nullptr; // the first chunk ever
    std::atomic<std::size_t> chunkCount_ = 0;
    // The reading thread's, on a cache line that appending does not touch.
    alignas(64) std::deque<Chunk*> chunks_;
    std::atomic<Chunk*>* link_ = &first_; // to the chunk after the last of them
    std::uint64_t begin_ = 0;
    const std::size_t maxSpares_;
};

} // namespace Corvid::detail
