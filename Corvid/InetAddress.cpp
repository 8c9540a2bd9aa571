#include <Corvid/InetAddress.h>

#include <arpa/inet.h>
#include <array>
#include <climits>
#include <unistd.h>

namespace Corvid {

InetAddress InetAddress::getByAddress(const std::string& text) {
    in_addr address = {};
    // inet_pton would read a text with an embedded zero only up to it.
    if (text.find('\0') != std::string::npos || ::inet_pton(AF_INET, text.c_str(), &address) != 1) {
        return {};
    }
    return fromBits(ntohl(address.s_addr));
}

std::string InetAddress::getLocalHostName() {
    std::array<char, HOST_NAME_MAX + 1> name = {};
    if (::gethostname(name.data(), name.size() - 1) != 0 || name[0] == '\0') {
        return "localhost";
    }
    return name.data();
}

std::string InetAddress::text() const {
    if (!valid_) {
        return {};
    }
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) {
        text += std::to_string(bits_ >> static_cast<unsigned>(shift) & 0xFFU);
        text += shift > 0 ? "." : "";
    }
    return text;
}

InetAddress InetAddress::fromBits(std::uint32_t bits) noexcept {
    InetAddress address;
    address.bits_ = bits;
    address.valid_ = true;
    return address;
}

} // namespace Corvid
