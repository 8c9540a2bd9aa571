#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace Show {

/// Splits the data of a TCP connection into packets. Each is preceded by its size in four bytes,
/// big-endian, or, if the first byte of the connection is 0xC0, delimited by such bytes (SLIP, RFC
/// 1055). Confined to one thread at a time.
class OscStream {
public:
    /// Limit of one packet in bytes.
    static constexpr std::size_t kMaxBytes = std::size_t{64} << 10U;

    /// Adds received bytes.
    void feed(std::span<const std::byte> bytes);
    /// The next complete packet, valid until the next call. Returns false if there is none.
    bool next(std::span<const std::byte>& packet);
    /// Whether the data is invalid, so that the connection is unusable.
    [[nodiscard]] bool broken() const noexcept { return broken_; }
    /// A packet for the other direction, framed as the received data.
    [[nodiscard]] std::string framed(std::span<const std::byte> packet) const;

private:
    enum class Framing { Unknown, Sizes, Slip };

    bool nextSized(std::span<const std::byte>& packet);
    bool nextSlip(std::span<const std::byte>& packet);

    Framing framing_ = Framing::Unknown;
    std::vector<std::byte> waiting_;
    std::size_t begin_ = 0;         // of the unread data
    std::vector<std::byte> packet_; // the SLIP packet so far
    bool given_ = false;            // packet_ is complete and was returned
    bool escaped_ = false;
    bool broken_ = false;
};

} // namespace Show
