#pragma once

#include <Corvid/InetAddress.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <system_error>

#include <orvel_export.h>

struct iovec;

namespace Corvid {

/// An IPv4 socket of the system. No operation waits: Loop::Watch says when one can go on.
///
/// It owns the descriptor. Confined; end() may be called while another thread uses the socket.
class ORVEL_EXPORT Socket {
public:
    enum class Type { Stream, Datagram };

    struct Endpoint {
        InetAddress address;
        std::uint16_t port = 0;

        [[nodiscard]] std::string text() const; ///< "address:port"
        friend bool operator==(const Endpoint&, const Endpoint&) = default;
    };

    /// The outcome of sending or receiving.
    struct Transfer {
        std::size_t bytes = 0; ///< of received ones, 0 without an error: the peer has ended
        std::error_code error;

        /// Nothing was wrong, but the operation would have had to wait.
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
    /// Takes the next client that waits. std::errc::operation_would_block if there is none.
    [[nodiscard]] std::error_code accept(Socket& client);
    /// Begins to connect. When the socket becomes writable, takeError() gives the outcome.
    [[nodiscard]] std::error_code connect(const Endpoint& peer);
    [[nodiscard]] std::error_code takeError();

    /// Its own end and the peer's; with port 0 and an invalid address if there is none.
    [[nodiscard]] Endpoint own() const;
    [[nodiscard]] Endpoint peer() const;

    [[nodiscard]] Transfer receive(std::span<std::byte> room, Endpoint* sender = nullptr);
    Transfer send(std::span<const std::byte> bytes);
    Transfer send(const iovec* pieces, std::size_t count);
    Transfer send(std::span<const std::byte> bytes, const Endpoint& receiver);

    /// Sends the peer an end after all that was sent.
    void endSending();
    /// Ends both directions at once; the descriptor stays until the socket is destroyed.
    void end();

    /// An option of setsockopt(); false if the system refuses it.
    template <class T>
    bool set(int level, int option, const T& value) {
        return set(level, option, &value, sizeof value);
    }
    bool set(int level, int option, const void* value, std::size_t size);

    /// Whether the peer has closed the connection, or it is broken, even if there is input to read
    /// before that shows.
    [[nodiscard]] bool isPeerGone() const;
    /// Bytes that have arrived and were not read.
    [[nodiscard]] std::size_t unread() const;
    /// Bytes that the system has taken and not sent once, and those that it has sent and the peer
    /// has not acknowledged, or not sent. 0 if the system does not say.
    [[nodiscard]] std::size_t unsent() const;
    [[nodiscard]] std::size_t unacknowledged() const;
    /// Whether the process can open so many descriptors after this one, or a quarter of all that it
    /// may have if that is less. For a socket that has just been opened.
    [[nodiscard]] bool leavesDescriptors(std::size_t count) const;

private:
    friend class Loop;
    explicit Socket(int descriptor) : descriptor_(descriptor) {}
    [[nodiscard]] std::size_t ask(unsigned long request) const;

    int descriptor_ = -1;
};

} // namespace Corvid
