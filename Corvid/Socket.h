#pragma once

#include <Corvid/InetAddress.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <system_error>

#include <orvel_export.h>

struct iovec;

namespace Corvid {

/// An IPv4 socket. No operation blocks; Loop::Watch reports when one can continue.
///
/// Owns the descriptor. Confined; end() may be called while another thread uses the socket.
class ORVEL_EXPORT Socket {
public:
    enum class Type { Stream, Datagram };

    /// An address with its port.
    struct Endpoint {
        InetAddress address;
        std::uint16_t port = 0;

        [[nodiscard]] std::string text() const; ///< "address:port"
        friend bool operator==(const Endpoint&, const Endpoint&) = default;
    };

    /// The outcome of sending or receiving.
    struct Transfer {
        std::size_t bytes = 0; ///< when receiving, 0 without an error means the end
        std::error_code error;

        /// Whether the operation would have blocked.
        [[nodiscard]] bool blocked() const;
    };

    Socket() = default;
    Socket(Socket&& other) noexcept;
    Socket& operator=(Socket&& other) noexcept;
    ~Socket();

    /// Whether it is open.
    explicit operator bool() const { return descriptor_ >= 0; }
    [[nodiscard]] std::error_code open(Type type);
    void close();

    [[nodiscard]] std::error_code bind(const Endpoint& own);
    [[nodiscard]] std::error_code listen(int backlog);
    /// Accepts the next client; std::errc::operation_would_block if there is none.
    [[nodiscard]] std::error_code accept(Socket& client);
    /// Starts to connect. When the socket becomes writable, takeError() returns the result.
    [[nodiscard]] std::error_code connect(const Endpoint& peer);
    [[nodiscard]] std::error_code takeError();

    /// The local and the peer's address; port 0 and an invalid address if there is none.
    [[nodiscard]] Endpoint own() const;
    [[nodiscard]] Endpoint peer() const;

    [[nodiscard]] Transfer receive(std::span<std::byte> room, Endpoint* sender = nullptr);
    /// Receives a datagram with the time at which the system received it, or of this call if
    /// stampArrivals() has not been called.
    [[nodiscard]] Transfer receive(
        std::span<std::byte> room, Endpoint& sender,
        std::chrono::steady_clock::time_point& arrived);
    Transfer send(std::span<const std::byte> bytes);
    Transfer send(const iovec* pieces, std::size_t count);
    Transfer send(std::span<const std::byte> bytes, const Endpoint& receiver);

    /// Shuts down sending, after everything that was sent.
    void endSending();
    /// Shuts down both directions; the descriptor stays open until the socket is destroyed.
    void end();

    /// Sets a socket option. Returns false if the system refuses it.
    template <class T>
    bool set(int level, int option, const T& value) {
        return set(level, option, &value, sizeof value);
    }
    bool set(int level, int option, const void* value, std::size_t size);

    /// Has the system record the time of arrival of each datagram.
    void stampArrivals();

    /// Whether the peer has closed the connection, or it is broken, even if there is unread input.
    [[nodiscard]] bool isPeerGone() const;
    /// Number of received, unread bytes.
    [[nodiscard]] std::size_t unread() const;
    /// Number of bytes that the system has not sent yet, and of those that the peer has not
    /// acknowledged. 0 if unknown.
    [[nodiscard]] std::size_t unsent() const;
    [[nodiscard]] std::size_t unacknowledged() const;
    /// Whether the process can open `count` more descriptors after this one, or a quarter of its
    /// limit if that is less. For a socket that has just been opened.
    [[nodiscard]] bool leavesDescriptors(std::size_t count) const;

private:
    friend class Loop;
    explicit Socket(int descriptor) : descriptor_(descriptor) {}
    [[nodiscard]] std::size_t ask(unsigned long request) const;

    int descriptor_ = -1;
};

} // namespace Corvid
