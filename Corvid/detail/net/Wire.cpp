#include <Corvid/detail/net/Wire.h>

#include <Corvid/Event.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <string_view>

namespace Corvid::detail {

static_assert(std::endian::native == std::endian::little, "the wire is written as memory is");

namespace {

constexpr std::string_view kGreetingMagic = "ORVELNET";
constexpr std::string_view kDiscoveryMagic = "ORVELFND";

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

} // namespace Corvid::detail
