#pragma once

#include <Corvid/Event.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>

namespace Corvid::detail {

/// The first message of each side, sent by the server at once and by the client when it keeps the
/// connection: 22 bytes, little-endian. "ORVELNET", protocol version (16 bits), features (16 bits),
/// instance (64 bits), id (16 bits).
struct Greeting {
    static constexpr std::size_t kSize = 22;
    /// The feature bit of a server that refuses the address; the other bits then have no meaning.
    static constexpr std::uint16_t kNotAdmitted = 0x8000;

    std::uint16_t version = 0;
    std::uint64_t instance = 0;
    std::int16_t id = 0;
    std::uint16_t features = 0;

    [[nodiscard]] std::array<std::byte, kSize> encode() const;
    /// Returns nothing if it is not a greeting. Accepts any version.
    [[nodiscard]] static std::optional<Greeting> decode(std::span<const std::byte, kSize> bytes);
    /// Whether a greeting can start like that.
    [[nodiscard]] static bool canBegin(std::span<const std::byte> bytes);
};

/// A datagram of discovery: 36 bytes, little-endian. "ORVELFND", protocol version (16 bits), kind
/// (16 bits), instance (64 bits), id (16 bits), TCP port (16 bits), nonce (32 bits), clock (64
/// bits).
struct DiscoveryDatagram {
    static constexpr std::size_t kSize = 36;
    enum class Kind : std::uint16_t {
        Query = 1,   ///< a client searches for servers; the port is 0
        Answer = 2,  ///< a server's answer, with the nonce of the query
        Announce = 3 ///< a server has opened; the nonce is 0
    };

    std::uint16_t version = 0;
    Kind kind = Kind::Query;
    std::uint64_t instance = 0;
    std::int16_t id = 0;
    std::uint16_t port = 0;
    std::uint32_t nonce = 0;
    std::uint64_t clock = 0; ///< of a server: microseconds since it opened; 0 in a query

    [[nodiscard]] std::array<std::byte, kSize> encode() const;
    /// Returns nothing if it is not such a datagram. Accepts any version.
    [[nodiscard]] static std::optional<DiscoveryDatagram> decode(std::span<const std::byte> bytes);
};

/// A datagram that measures a client's clock: 40 bytes, little-endian. "ORVELCLK", protocol version
/// (16 bits), kind (16 bits), number (32 bits), received and sent (64 bits each), code (64 bits):
/// the first bytes of the HMAC-SHA256 of those before, keyed with the connection's nonce.
struct ClockDatagram {
    static constexpr std::size_t kSize = 40;
    enum class Kind : std::uint16_t {
        Question = 1, ///< from a server to a client that offers its clock; both times are 0
        Answer = 2    ///< the client's, with the number of the question
    };

    std::uint16_t version = 0;
    Kind kind = Kind::Question;
    std::uint32_t number = 0;
    std::int64_t received = 0; ///< when the question was received, by the client's clock
    std::int64_t sent = 0;     ///< when the answer was sent, by the client's clock

    using Bytes = std::array<std::byte, kSize>;
    [[nodiscard]] Bytes encode(std::uint64_t nonce) const;
    /// Returns nothing if it is not such a datagram. Accepts any version and code.
    [[nodiscard]] static std::optional<ClockDatagram> decode(std::span<const std::byte> bytes);
    /// Whether its sender knows the nonce.
    [[nodiscard]] static bool isFrom(const Bytes& bytes, std::uint64_t nonce);
};

/// The length, event type and tag at the start of each frame.
constexpr std::size_t kFrameHeaderBytes = 8;

/// The size of the frame at the start of these bytes, including its length field: nothing if the
/// field is incomplete, 0 if it is invalid.
[[nodiscard]] inline std::optional<std::size_t> frameSize(std::span<const std::byte> bytes) {
    std::uint32_t length = 0;
    if (bytes.size() < sizeof length) {
        return std::nullopt;
    }
    std::memcpy(&length, bytes.data(), sizeof length);
    constexpr std::size_t kLeast = kFrameHeaderBytes - sizeof length;
    constexpr std::size_t kMax = Event::kMaxFrameBytes - sizeof length;
    return length < kLeast || length > kMax ? 0 : length + sizeof length;
}

} // namespace Corvid::detail
