#pragma once

#include <cstddef>
#include <span>
#include <vector>

namespace Show {

/// Cuts what comes over a TCP connection into packets. Before each of them stands its size, in four
/// bytes with the highest first, or, if the first byte of the connection is 0xC0, they are between
/// such bytes (SLIP, RFC 1055). Confined to one thread at a time.
class OscStream {
public:
    /// The most bytes of one packet.
    static constexpr std::size_t kMostBytes = std::size_t{64} << 10U;

    /// Takes the next bytes of the connection.
    void feed(std::span<const std::byte> bytes);
    /// The next whole packet, valid until the next call; false if there is none.
    bool next(std::span<const std::byte>& packet);
    /// Whether something came that can be no packet, so that the connection is of no more use.
    [[nodiscard]] bool broken() const noexcept { return broken_; }

private:
    enum class Framing { Unknown, Sizes, Slip };

    bool nextSized(std::span<const std::byte>& packet);
    bool nextSlip(std::span<const std::byte>& packet);

    Framing framing_ = Framing::Unknown;
    std::vector<std::byte> waiting_;
    std::size_t begin_ = 0;         // of what is not taken yet
    std::vector<std::byte> packet_; // of SLIP, as far as it has come
    bool given_ = false;            // packet_ is complete and with the caller
    bool escaped_ = false;
    bool broken_ = false;
};

} // namespace Show
