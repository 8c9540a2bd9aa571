#include <Corvid/detail/net/DatagramSeal.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>
#include <string_view>

namespace Corvid::detail {

namespace {

DatagramSeal::Code hmacSha256(std::span<const std::byte> key, std::span<const std::byte> message) {
    DatagramSeal::Code code;
    unsigned size = 0;
    if (::HMAC(
            ::EVP_sha256(), key.data(), static_cast<int>(key.size()),
            reinterpret_cast<const unsigned char*>(message.data()), message.size(),
            reinterpret_cast<unsigned char*>(code.data()), &size) == nullptr) {
        throw std::bad_alloc();
    }
    return code;
}

/// The authenticator of a datagram up to its own place.
DatagramSeal::Code
codeOf(std::span<const std::byte> bytes, const Keys::Key& key, const Socket::Endpoint& sender) {
    // A key of its own, as the secret is used for the connections' key exchange.
    constexpr std::string_view kPurpose = "orvel discovery 1";
    const auto own = hmacSha256(key.secret, std::as_bytes(std::span(kPurpose)));
    const std::uint32_t address = sender.address.bits();
    constexpr std::size_t kContent = DatagramSeal::kDatagramSize - DatagramSeal::kCodeBytes;
    std::array<std::byte, kContent + sizeof address + sizeof sender.port> message;
    std::memcpy(message.data(), bytes.data(), kContent);
    std::memcpy(message.data() + kContent, &address, sizeof address);
    std::memcpy(message.data() + kContent + sizeof address, &sender.port, sizeof sender.port);
    return hmacSha256(own, message);
}

} // namespace

DatagramSeal::Nonce DatagramSeal::newNonce() {
    Nonce nonce;
    if (::RAND_bytes(reinterpret_cast<unsigned char*>(nonce.data()), kNonceBytes) != 1) {
        throw std::bad_alloc();
    }
    return nonce;
}

std::array<std::byte, DatagramSeal::kDatagramSize> DatagramSeal::seal(
    const DiscoveryDatagram& datagram, const Keys::Key& key, const Nonce& nonce,
    const Socket::Endpoint& sender) {
    std::array<std::byte, kDatagramSize> bytes{};
    auto end = std::ranges::copy(datagram.encode(), bytes.begin()).out;
    end = std::ranges::copy(std::as_bytes(std::span(key.id)), end).out;
    end = std::ranges::copy(nonce, end).out;
    std::ranges::copy(codeOf(bytes, key, sender), end);
    return bytes;
}

std::optional<DatagramSeal> DatagramSeal::open(
    std::span<const std::byte, kDatagramSize> bytes, const Keys& keys,
    const Socket::Endpoint& sender) {
    constexpr std::size_t kId = DiscoveryDatagram::kSize;
    constexpr std::size_t kNonce = kId + Keys::kIdBytes;
    constexpr std::size_t kCode = kNonce + kNonceBytes;
    const auto id = bytes.subspan<kId, Keys::kIdBytes>();
    DatagramSeal seal;
    seal.key = keys.find({reinterpret_cast<const char*>(id.data()), id.size()});
    if (seal.key == nullptr) {
        return std::nullopt;
    }
    std::ranges::copy(bytes.subspan<kNonce, kNonceBytes>(), seal.nonce.begin());
    std::ranges::copy(bytes.subspan<kCode>(), seal.code.begin());
    const Code expected = codeOf(bytes, *seal.key, sender);
    if (::CRYPTO_memcmp(expected.data(), seal.code.data(), expected.size()) != 0) {
        return std::nullopt;
    }
    return seal;
}

} // namespace Corvid::detail
