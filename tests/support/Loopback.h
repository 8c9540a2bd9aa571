#pragma once

#include <Corvid/InetAddress.h>
#include <Corvid/Multicast.h>

#include <arpa/inet.h>
#include <chrono>
#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace Orvel::Test {

/// Keeps every search for peers of a test program on the loopback interface, from before main() on.
inline const bool staysOnLoopback = [] {
    Corvid::Multicast::setDefaultInterfaces({Corvid::InetAddress::getByAddress("127.0.0.1")});
    return true;
}();

/// A multicast port that no other process used a moment ago, the same for the whole process.
inline unsigned short testPort() {
    static const unsigned short port = [] {
        const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        socklen_t length = sizeof(address);
        auto* generic = reinterpret_cast<sockaddr*>(&address);
        if (socket < 0 || ::bind(socket, generic, length) != 0 ||
            ::getsockname(socket, generic, &length) != 0) {
            throw std::runtime_error("no UDP port on loopback");
        }
        ::close(socket);
        return ntohs(address.sin_port);
    }();
    return port;
}

/// Calls `step` until `done` gives true; false if that takes more than ten seconds.
template <class Done, class Step>
bool until(Done done, Step step) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        step();
        ::poll(nullptr, 0, 1); // leaves the processor to the other threads
    }
    return true;
}

} // namespace Orvel::Test
