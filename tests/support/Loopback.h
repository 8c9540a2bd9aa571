#pragma once

#include <Corvid/InetAddress.h>
#include <Corvid/Multicast.h>

#include <arpa/inet.h>
#include <chrono>
#include <cstdint>
#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace Orvel::Test {

/// Restricts all searches of a test program to the loopback interface, before main().
inline const bool staysOnLoopback = [] {
    Corvid::Multicast::setDefaultInterfaces({Corvid::InetAddress::getByAddress("127.0.0.1")});
    return true;
}();

inline sockaddr_in loopback(std::uint16_t port, std::uint32_t host = INADDR_LOOPBACK) {
    return {AF_INET, htons(port), {htonl(host)}, {}};
}

/// Returns a socket bound to a free loopback port, and the port; the caller closes it.
inline int boundSocket(int kind, std::uint16_t& port) {
    const int descriptor = ::socket(AF_INET, kind | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(0);
    socklen_t length = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    if (descriptor < 0 || ::bind(descriptor, generic, length) != 0 ||
        ::getsockname(descriptor, generic, &length) != 0) {
        throw std::runtime_error("no free port on loopback");
    }
    port = ntohs(address.sin_port);
    return descriptor;
}

/// A port that was free a moment ago.
inline std::uint16_t freePort(int kind) {
    std::uint16_t port = 0;
    ::close(boundSocket(kind, port));
    return port;
}

/// A multicast port of its own for the whole process.
inline std::uint16_t testPort() {
    static const std::uint16_t port = freePort(SOCK_DGRAM);
    return port;
}

/// Calls `step` until `done` returns true. Returns false after half a minute.
template <class Done, class Step>
bool until(Done done, Step step) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        step();
        ::poll(nullptr, 0, 1); // yields to the other threads
    }
    return true;
}

} // namespace Orvel::Test
