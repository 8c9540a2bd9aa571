#include <Corvid/detail/net/Wire.h>

#include <Corvid/Event.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <new>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <string_view>

namespace Corvid::detail {

static_assert(std::endian::native == std::endian::little, "the wire is written as memory is");

namespace {

constexpr std::string_view kGreetingMagic = "ORVELNET";
constexpr std::string_view kDiscoveryMagic = "ORVELFND";
constexpr std::string_view kClockMagic = "ORVELCLK";

class Writer {
public:
    explicit Writer(std::span<std::byte> bytes) : bytes_(bytes) {}
    Writer& magic(std::string_view text) { return copy(text.data(), text.size()); }
    template <class T>
    Writer& put(T value) {
        return copy(&value, sizeof value);
    }

private:
    Writer& copy(const void* from, std::size_t size) {
        std::memcpy(bytes_.data(), from, size);
        bytes_ = bytes_.subspan(size);
        return *this;
    }
    std::span<std::byte> bytes_;
};

/// The caller has checked the number of bytes.
class Reader {
public:
    explicit Reader(std::span<const std::byte> bytes) : bytes_(bytes) {}
    template <class T>
    Reader& get(T& value) {
        std::memcpy(&value, bytes_.data(), sizeof value);
        bytes_ = bytes_.subspan(sizeof value);
        return *this;
    }

private:
    std::span<const std::byte> bytes_;
};

bool beginsWith(std::span<const std::byte> bytes, std::string_view magic) {
    return std::memcmp(bytes.data(), magic.data(), std::min(bytes.size(), magic.size())) == 0;
}

constexpr std::size_t kClockContent = ClockDatagram::kSize - sizeof(std::uint64_t);

std::uint64_t clockCode(const ClockDatagram::Bytes& bytes, std::uint64_t nonce) {
    std::array<unsigned char, 32> code{};
    unsigned size = 0;
    if (::HMAC(
            ::EVP_sha256(), &nonce, sizeof nonce,
            reinterpret_cast<const unsigned char*>(bytes.data()), kClockContent, code.data(),
            &size) == nullptr) {
        throw std::bad_alloc();
    }
    std::uint64_t first = 0;
    std::memcpy(&first, code.data(), sizeof first);
    return first;
}

} // namespace

std::array<std::byte, Greeting::kSize> Greeting::encode() const {
    std::array<std::byte, kSize> bytes;
    Writer(bytes).magic(kGreetingMagic).put(version).put(features).put(instance).put(id);
    return bytes;
}

bool Greeting::canBegin(std::span<const std::byte> bytes) {
    return bytes.empty() || beginsWith(bytes, kGreetingMagic);
}

std::optional<Greeting> Greeting::decode(std::span<const std::byte, kSize> bytes) {
    if (!canBegin(bytes)) {
        return std::nullopt;
    }
    Greeting greeting;
    Reader(bytes.subspan(kGreetingMagic.size()))
        .get(greeting.version)
        .get(greeting.features)
        .get(greeting.instance)
        .get(greeting.id);
    return greeting;
}

std::array<std::byte, DiscoveryDatagram::kSize> DiscoveryDatagram::encode() const {
    std::array<std::byte, kSize> bytes;
    Writer(bytes)
        .magic(kDiscoveryMagic)
        .put(version)
        .put(kind)
        .put(instance)
        .put(id)
        .put(port)
        .put(nonce)
        .put(clock);
    return bytes;
}

std::optional<DiscoveryDatagram> DiscoveryDatagram::decode(std::span<const std::byte> bytes) {
    if (bytes.size() != kSize || !beginsWith(bytes, kDiscoveryMagic)) {
        return std::nullopt;
    }
    DiscoveryDatagram datagram;
    std::uint16_t kind = 0;
    Reader(bytes.subspan(kDiscoveryMagic.size()))
        .get(datagram.version)
        .get(kind)
        .get(datagram.instance)
        .get(datagram.id)
        .get(datagram.port)
        .get(datagram.nonce)
        .get(datagram.clock);
    datagram.kind = static_cast<Kind>(kind);
    const bool known = kind >= static_cast<std::uint16_t>(Kind::Query) &&
                       kind <= static_cast<std::uint16_t>(Kind::Announce);
    if (!known || (datagram.kind != Kind::Query && datagram.port == 0)) {
        return std::nullopt;
    }
    return datagram;
}

ClockDatagram::Bytes ClockDatagram::encode(std::uint64_t nonce) const {
    Bytes bytes;
    Writer(bytes).magic(kClockMagic).put(version).put(kind).put(number).put(received).put(sent);
    const std::uint64_t code = clockCode(bytes, nonce);
    std::memcpy(bytes.data() + kClockContent, &code, sizeof code);
    return bytes;
}

bool ClockDatagram::isFrom(const Bytes& bytes, std::uint64_t nonce) {
    const std::uint64_t code = clockCode(bytes, nonce);
    return ::CRYPTO_memcmp(bytes.data() + kClockContent, &code, sizeof code) == 0;
}

std::optional<ClockDatagram> ClockDatagram::decode(std::span<const std::byte> bytes) {
    if (bytes.size() != kSize || !beginsWith(bytes, kClockMagic)) {
        return std::nullopt;
    }
    ClockDatagram datagram;
    std::uint16_t kind = 0;
    Reader(bytes.subspan(kClockMagic.size()))
        .get(datagram.version)
        .get(kind)
        .get(datagram.number)
        .get(datagram.received)
        .get(datagram.sent);
    datagram.kind = static_cast<Kind>(kind);
    if (datagram.kind != Kind::Question && datagram.kind != Kind::Answer) {
        return std::nullopt;
    }
    return datagram;
}

} // namespace Corvid::detail
