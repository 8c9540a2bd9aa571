#pragma once

#include <Corvid/detail/net/Wire.h>

#include <cstddef>
#include <memory>
#include <span>

namespace Corvid::detail {

/// Received bytes of a connection, split into frames. It grows with received data, never because of
/// a length field. Not synchronised.
class InputBuffer {
public:
    enum class Next {
        Part,  ///< no complete frame
        Frame, ///< at least one complete frame
        Broken ///< the next bytes are not a frame
    };

    /// The space for received bytes; never empty. Invalidates returned frames.
    std::span<std::byte> room();
    /// Sets the number of bytes stored there.
    void commit(std::size_t bytes);

    /// Discards unread bytes; returned frames stay valid.
    void clear() { begin_ = end_; }

    // Inline, because they are called for each frame.
    [[nodiscard]] Next next() const {
        const std::span<const std::byte> bytes(bytes_.get() + begin_, end_ - begin_);
        const auto size = frameSize(bytes);
        if (!size) {
            return Next::Part;
        }
        if (*size == 0) {
            return Next::Broken;
        }
        return *size <= bytes.size() ? Next::Frame : Next::Part;
    }
    /// Returns the next frame, which must be complete. Valid until room().
    std::span<const std::byte> take() {
        std::span<const std::byte> bytes(bytes_.get() + begin_, end_ - begin_);
        bytes = bytes.first(*frameSize(bytes));
        begin_ += bytes.size();
        return bytes;
    }

    [[nodiscard]] std::size_t capacity() const noexcept { return capacity_; }

private:
    static constexpr std::size_t kLeast = std::size_t{16} << 10U;
    static constexpr std::size_t kUsual = std::size_t{256} << 10U;

    void resize(std::size_t capacity);

    std::unique_ptr<std::byte[]> bytes_;
    std::size_t capacity_ = 0;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    bool wasFull_ = false; // the last room was filled, so a larger one saves calls
};

} // namespace Corvid::detail
