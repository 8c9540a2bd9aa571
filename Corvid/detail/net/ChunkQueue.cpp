#include <Corvid/detail/net/ChunkQueue.h>

#include <Corvid/detail/net/Wire.h>

#include <algorithm>
#include <utility>

namespace Corvid::detail {

void ChunkQueue::appendAcross(const std::byte* bytes, std::size_t size) {
    const std::uint64_t begin = end_;
    const std::uint64_t end = begin + size;
    while (size > 0) {
        if (room_ == 0) {
            if (spares_.empty()) {
                chunks_.push_back(std::make_unique_for_overwrite<Chunk>());
            } else {
                chunks_.push_back(std::move(spares_.back()));
                spares_.pop_back();
            }
            chunks_.back()->firstFrame = end_ == begin ? begin : end;
            tail_ = chunks_.back()->bytes.data();
            room_ = kChunkBytes;
        }
        const std::size_t part = std::min(size, room_);
        std::memcpy(tail_, bytes, part);
        bytes += part;
        size -= part;
        tail_ += part;
        room_ -= part;
        end_ += part;
    }
}

std::size_t
ChunkQueue::gather(std::uint64_t from, std::uint64_t to, iovec* pieces, std::size_t most) const {
    std::size_t count = 0;
    while (from < to && count < most) {
        const std::size_t offset = static_cast<std::size_t>(from - first_);
        const std::size_t inChunk = offset % kChunkBytes;
        const std::size_t size = std::min<std::size_t>(to - from, kChunkBytes - inChunk);
        pieces[count++] = {chunks_[offset / kChunkBytes]->bytes.data() + inChunk, size};
        from += size;
    }
    return count;
}

std::uint64_t ChunkQueue::frameStart(std::uint64_t position) const {
    if (position == end_) {
        return end_;
    }
    std::uint64_t start = chunks_[(position - first_) / kChunkBytes]->firstFrame;
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
    begin_ = std::max(begin_, std::min(position, end_));
    while (!chunks_.empty() && first_ + kChunkBytes <= begin_) {
        if (spares_.size() < maxSpares_) {
            spares_.push_back(std::move(chunks_.front()));
        }
        chunks_.pop_front();
        first_ += kChunkBytes;
    }
    // Empty: the next byte goes into a new chunk, or to the start of the only one.
    if (chunks_.empty()) {
        first_ = end_;
        room_ = 0;
    } else if (begin_ == end_ && chunks_.size() == 1) {
        first_ = end_;
        chunks_.front()->firstFrame = end_;
        tail_ = chunks_.front()->bytes.data();
        room_ = kChunkBytes;
    }
}

} // namespace Corvid::detail
