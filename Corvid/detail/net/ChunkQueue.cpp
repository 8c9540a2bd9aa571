#include <Corvid/detail/net/ChunkQueue.h>

#include <Corvid/detail/net/Wire.h>

#include <algorithm>
#include <memory>
#include <utility>

namespace Corvid::detail {

ChunkQueue::~ChunkQueue() {
    findChunks();
    for (Chunk* chunk : chunks_) {
        delete chunk;
    }
    for (Chunk* spare : {ownSpares_, spares_.load()}) {
        while (spare != nullptr) {
            delete std::exchange(spare, spare->next.load());
        }
    }
}

// The thread that appends

/// Makes sure that there are so many spare chunks. If it throws, nothing was appended.
void ChunkQueue::reserve(std::size_t count) {
    if (ownSpares_ == nullptr) {
        ownSpares_ = spares_.exchange(nullptr, std::memory_order_acquire);
    }
    for (const Chunk* spare = ownSpares_; spare != nullptr && count > 0; --count) {
        spare = spare->next.load(std::memory_order_relaxed);
    }
    for (; count > 0; --count) {
        auto* chunk = new Chunk; // its bytes stay uninitialised
        chunkCount_.fetch_add(1, std::memory_order_relaxed);
        chunk->next.store(ownSpares_, std::memory_order_relaxed);
        ownSpares_ = chunk;
    }
}

void ChunkQueue::appendAcross(const std::byte* bytes, std::size_t size) {
    const std::uint64_t begin = end_.load(std::memory_order_relaxed);
    std::uint64_t position = begin;
    std::size_t left = size;
    reserve((size - room_ + kChunkBytes - 1) / kChunkBytes);
    while (left > 0) {
        if (room_ == 0) {
            Chunk* chunk = ownSpares_;
            ownSpares_ = chunk->next.load(std::memory_order_relaxed);
            chunk->next.store(nullptr, std::memory_order_relaxed);
            chunk->begin = position;
            chunk->firstFrame = position == begin ? begin : begin + size;
            tail_ = chunk->bytes.data();
            room_ = kChunkBytes;
            last_->store(chunk, std::memory_order_release);
            last_ = &chunk->next;
        }
        const std::size_t part = std::min(left, room_);
        std::memcpy(tail_, bytes, part);
        bytes += part;
        left -= part;
        tail_ += part;
        room_ -= part;
        position += part;
    }
    publish(size);
}

// The thread that reads

/// Takes up chunks that were appended.
void ChunkQueue::findChunks() {
    while (Chunk* chunk = link_->load(std::memory_order_acquire)) {
        chunks_.push_back(chunk);
        link_ = &chunk->next;
    }
}

ChunkQueue::Chunk& ChunkQueue::chunkAt(std::uint64_t position) {
    const std::size_t index = (position - chunks_.front()->begin) / kChunkBytes;
    return *chunks_[index];
}

std::size_t
ChunkQueue::gather(std::uint64_t from, std::uint64_t to, iovec* pieces, std::size_t most) {
    findChunks();
    std::size_t count = 0;
    while (from < to && count < most) {
        Chunk& chunk = chunkAt(from);
        const auto inChunk = static_cast<std::size_t>(from - chunk.begin);
        const std::size_t size = std::min<std::size_t>(to - from, kChunkBytes - inChunk);
        pieces[count++] = {chunk.bytes.data() + inChunk, size};
        from += size;
    }
    return count;
}

std::uint64_t ChunkQueue::frameStart(std::uint64_t position) {
    if (position == end()) {
        return position;
    }
    findChunks();
    std::uint64_t start = chunkAt(position).firstFrame;
    while (start < position) {
        std::array<std::byte, kFrameHeaderBytes> header; // may span two chunks
        std::array<iovec, 2> pieces;
        const std::size_t count =
            gather(start, start + header.size(), pieces.data(), pieces.size());
        std::size_t size = 0;
        for (std::size_t i = 0; i < count; ++i) {
            std::memcpy(header.data() + size, pieces[i].iov_base, pieces[i].iov_len);
            size += pieces[i].iov_len;
        }
        start += *frameSize(header);
    }
    return start;
}

void ChunkQueue::trim(std::uint64_t position) {
    begin_ = std::max(begin_, position);
    findChunks();
    // The last one stays, because the next frame or the link to the next chunk is written there.
    while (chunks_.size() > 1 && chunks_.front()->begin + kChunkBytes <= begin_) {
        Chunk* chunk = chunks_.front();
        chunks_.pop_front();
        if (chunkCount_.load(std::memory_order_relaxed) - chunks_.size() > maxSpares_) {
            delete chunk;
            chunkCount_.fetch_sub(1, std::memory_order_relaxed);
            continue;
        }
        Chunk* next = spares_.load(std::memory_order_relaxed);
        do {
            chunk->next.store(next, std::memory_order_relaxed);
        } while (!spares_.compare_exchange_weak(
            next, chunk, std::memory_order_release, std::memory_order_relaxed));
    }
}

} // namespace Corvid::detail
