#pragma once

#include <Corvid/Keys.h>
#include <Corvid/Socket.h>
#include <Corvid/detail/net/Wire.h>

#include <array>
#include <cstddef>
#include <optional>
#include <span>

namespace Corvid::detail {

/// The end of a discovery datagram between holders of a key: the key's id (16 bytes), a nonce (16
/// bytes), and an authenticator (32 bytes) over all that and the sender's address and port.
struct DatagramSeal {
    static constexpr std::size_t kNonceBytes = 16;
    static constexpr std::size_t kCodeBytes = 32;
    static constexpr std::size_t kSize = Keys::kIdBytes + kNonceBytes + kCodeBytes;
    /// The size of a sealed datagram.
    static constexpr std::size_t kDatagramSize = DiscoveryDatagram::kSize + kSize;
    using Nonce = std::array<std::byte, kNonceBytes>;
    using Code = std::array<std::byte, kCodeBytes>;

    const Keys::Key* key = nullptr;
    Nonce nonce = {};
    Code code = {};

    [[nodiscard]] static Nonce newNonce();
    /// A datagram with its seal, as `sender` sends it.
    [[nodiscard]] static std::array<std::byte, kDatagramSize> seal(
        const DiscoveryDatagram& datagram, const Keys::Key& key, const Nonce& nonce,
        const Socket::Endpoint& sender);
    /// The seal of a datagram of kDatagramSize that came from `sender`. Returns nothing if none of
    /// the keys made it.
    [[nodiscard]] static std::optional<DatagramSeal> open(
        std::span<const std::byte, kDatagramSize> bytes, const Keys& keys,
        const Socket::Endpoint& sender);
};

} // namespace Corvid::detail
