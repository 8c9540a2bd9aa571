#pragma once

#include <Corvid/InetAddress.h>

#include <cstdint>
#include <optional>
#include <string>

namespace Show {

/// A range of IPv4 addresses with a common prefix. Immutable.
class AddressRange {
public:
    /// Parses "ADDRESS" or "ADDRESS/BITS", such as 192.168.1.0/24; empty if it is neither.
    static std::optional<AddressRange> parse(const std::string& text);

    [[nodiscard]] bool contains(const Corvid::InetAddress& address) const {
        return (address.bits() & mask_) == bits_;
    }

private:
    std::uint32_t bits_ = 0;
    std::uint32_t mask_ = 0;
};

} // namespace Show
