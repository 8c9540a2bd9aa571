#include <Corvid/detail/net/InputBuffer.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace Corvid::detail {

std::span<std::byte> InputBuffer::room() {
    const std::size_t used = end_ - begin_;
    if (capacity_ == 0) {
        resize(kLeast);
    } else if (used == 0 && capacity_ > kUsual) {
        resize(kUsual); // after a large frame
    } else if ((wasFull_ && capacity_ < kUsual) || used > capacity_ / 2) {
        resize(2 * capacity_); // the peer sends a lot, or the rest of a large frame follows
    } else if (begin_ > 0) {
        std::memmove(bytes_.get(), bytes_.get() + begin_, used);
        begin_ = 0;
        end_ = used;
    }
    return {bytes_.get() + end_, capacity_ - end_};
}

void InputBuffer::resize(std::size_t capacity) {
    auto bytes = std::make_unique_for_overwrite<std::byte[]>(capacity);
    const std::size_t used = end_ - begin_;
    if (used > 0) {
        std::memcpy(bytes.get(), bytes_.get() + begin_, used);
    }
    bytes_ = std::move(bytes);
    capacity_ = capacity;
    begin_ = 0;
    end_ = used;
}

void InputBuffer::commit(std::size_t bytes) {
    end_ += bytes;
    wasFull_ = end_ == capacity_;
}

} // namespace Corvid::detail
