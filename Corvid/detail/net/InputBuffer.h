#pragma once

#include <cstddef>
#include <memory>
#include <span>

namespace Corvid::detail {

/// Bytes that have arrived on a connection, cut into frames. It grows with what has arrived, never
/// by what a length field says. Not synchronised.
class InputBuffer {
public:
    enum class Next {
        Part,  ///< no whole frame
        Frame, ///< at least one whole frame
        Broken ///< what comes next cannot be a frame
    };

    /// Where to put what arrives next; never empty. Frames given before become invalid.
    std::span<std::byte> room();
    /// Tells how much has been put there.
    void commit(std::size_t bytes);

    /// Discards what has arrived; a frame given before stays valid.
    void clear() { begin_ = end_; }

    [[nodiscard]] Next next() const;
    /// Takes the next frame, which must be whole. It is valid until room().
    std::span<const std::byte> take();

    [[nodiscard]] std::size_t capacity() const noexcept { return capacity_; }

private:
    static constexpr std::size_t kLeast = std::size_t{16} << 10U;
    static constexpr std::size_t kUsual = std::size_t{256} << 10U;

    void resize(std::size_t capacity);

    std::unique_ptr<std::byte[]> bytes_;
    std::size_t capacity_ = 0;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    bool wasFull_ = false; // the last room was filled, so that a larger one saves calls
};

} // namespace Corvid::detail
