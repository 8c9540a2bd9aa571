#pragma once

#include <cstdint>
#include <string>

#include <orvel_export.h>

namespace Corvid {

/// An IPv4 address, a plain value. Immutable but for assignment.
class ORVEL_EXPORT InetAddress {
public:
    /// No address; isValid() is false.
    InetAddress() = default;

    /// Reads dotted decimals ("127.0.0.1"); anything else gives an invalid address.
    [[nodiscard]] static InetAddress getByAddress(const std::string& text);
    /// The name of this machine, or "localhost" if it has none.
    [[nodiscard]] static std::string getLocalHostName();

    [[nodiscard]] bool isValid() const noexcept { return valid_; }
    [[nodiscard]] bool isMulticast() const noexcept { return valid_ && bits_ >> 28U == 0xEU; }
    /// Dotted decimals; empty for an invalid address.
    [[nodiscard]] std::string text() const;
    /// The address in host byte order.
    [[nodiscard]] std::uint32_t bits() const noexcept { return bits_; }
    [[nodiscard]] static InetAddress fromBits(std::uint32_t bits) noexcept;

    friend bool operator==(const InetAddress&, const InetAddress&) = default;

private:
    std::uint32_t bits_ = 0;
    bool valid_ = false;
};

} // namespace Corvid
