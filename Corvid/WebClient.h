#pragma once

#include <Corvid/InetAddress.h>

#include <cstdint>
#include <string>

#include <orvel_export.h>

namespace Corvid {

/// The client of a request: the peer of its connection. Immutable.
class ORVEL_EXPORT WebClient {
public:
    WebClient(const InetAddress& address, std::uint16_t port) : address_(address), port_(port) {}

    [[nodiscard]] const InetAddress& address() const noexcept { return address_; }
    [[nodiscard]] std::uint16_t port() const noexcept { return port_; }
    /// "address:port"
    [[nodiscard]] std::string text() const { return address_.text() + ':' + std::to_string(port_); }

private:
    InetAddress address_;
    std::uint16_t port_;
};

} // namespace Corvid
