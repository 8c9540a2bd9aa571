#pragma once

#include "support/Loopback.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Orvel::Test {

/// A raw TCP connection to an address in 127/8.
class RawSocket {
public:
    /// A small `receiveBuffer` fills up quickly; 0 is the system's default.
    explicit RawSocket(
        std::uint16_t port, std::string_view bytes = {}, int receiveBuffer = 4096,
        std::uint32_t host = INADDR_LOOPBACK)
        : descriptor_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const sockaddr_in address = loopback(port, host);
        if (receiveBuffer != 0) {
            ::setsockopt(descriptor_, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
        }
        connected_ =
            ::connect(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
            0;
        send(bytes);
    }
    RawSocket(const RawSocket&) = delete;
    RawSocket& operator=(const RawSocket&) = delete;
    ~RawSocket() { ::close(descriptor_); }

    [[nodiscard]] bool connected() const { return connected_; }
    /// Returns the number of bytes that the system accepted.
    std::size_t send(std::string_view bytes, int flags = MSG_DONTWAIT) const {
        const auto size = ::send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL | flags);
        return size > 0 ? static_cast<std::size_t>(size) : 0;
    }
    void endSending() const { ::shutdown(descriptor_, SHUT_WR); }
    /// Appends received data. Returns false once the peer has closed the connection.
    bool receive(std::string& input) const {
        char block[65536];
        ssize_t size = 0;
        while ((size = ::recv(descriptor_, block, sizeof block, MSG_DONTWAIT)) > 0) {
            input.append(block, static_cast<std::size_t>(size));
        }
        return size < 0 && (errno == EAGAIN || errno == EINTR);
    }
    /// Whether the peer has closed the connection; discards its data.
    [[nodiscard]] bool isClosed() const {
        std::string discarded;
        return !receive(discarded);
    }

private:
    int descriptor_;
    bool connected_ = false;
};

/// Sends bytes as one datagram.
inline void sendTo(int descriptor, std::string_view bytes, const sockaddr_in& to) {
    ::sendto(
        descriptor, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to),
        sizeof to);
}

} // namespace Orvel::Test
