#pragma once

#include <Corvid/Communicator.h>
#include <Corvid/detail/net/InputBuffer.h>
#include <Corvid/detail/net/Loop.h>
#include <Corvid/detail/net/OutgoingStream.h>
#include <Corvid/detail/net/wire.h>

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <thread>

namespace Corvid::detail {

/// The socket of one connection with its input and its place in the outgoing stream. Confined to
/// the loop thread but for what says otherwise. Shared by its Communicator, the hub and the
/// operations under way; the socket closes with the last of them.
class Connection : public std::enable_shared_from_this<Connection> {
public:
    enum class Status { Done, More, Blocked, Failed };

    /// Takes a connected socket. `target`: the name under which a server was asked for, if it was.
    Connection(
        std::shared_ptr<Loop> loop, boost::asio::ip::tcp::socket socket, bool noDelay,
        std::string target);

    /// Sends our greeting.
    bool sendGreeting(const Greeting& greeting);
    /// Reads what is there of the peer's greeting; Done when that is complete. Reads no byte more.
    Status readGreeting();
    [[nodiscard]] bool hasSaidAnything() const { return greetingSize_ > 0; }
    /// Whether it is a client that has sent no part of an event since it came, `atLeast` ago.
    [[nodiscard]] bool isIdle(std::chrono::steady_clock::duration atLeast);
    /// Reads once.
    Status read();
    /// Whether the last read() took all that was there.
    [[nodiscard]] bool isDry() const { return isDry_; }
    /// Sends what waits; More if there is more but it is another connection's turn.
    Status write();

    /// Whether the peer has closed the connection, or it is broken, even if there is input to read
    /// before that shows.
    [[nodiscard]] bool isPeerGone();
    /// Discards what has arrived.
    void discardInput() { input_.clear(); }

    /// Ends the connection; the first reason counts. Synchronised.
    void end(const std::string& reason);
    [[nodiscard]] bool isEnded() const { return ended_; }
    [[nodiscard]] std::string endReason() const;

    // For whoever the connection was handed to.
    [[nodiscard]] InputBuffer::Next next() const { return input_.next(); }
    bool receiveFrame(std::span<const std::byte>& frame);

    /// On the loop thread, while that brings the peer up to date: what this thread queues meanwhile
    /// is sent in large parts at once, so that the peer works too.
    void beginReplay() { replayThread_ = std::this_thread::get_id(); }
    /// Whatever is left is for the loop to send.
    void endReplay();

    /// Queues a frame for this peer. Synchronised.
    bool sendFrame(const std::byte* frame, std::size_t size);
    /// Tells the host a line about what could not be sent. Synchronised.
    void report(const std::string& text) const;
    /// Synchronised.
    [[nodiscard]] Communicator::Counters counters() const;

    [[nodiscard]] const std::string& peerName() const { return peerName_; }
    [[nodiscard]] std::chrono::steady_clock::time_point since() const { return begin_; }
    [[nodiscard]] std::uint32_t peerAddress() const { return peerAddress_; }
    [[nodiscard]] const Greeting& peer() const { return peer_; }
    [[nodiscard]] const std::string& target() const { return target_; }
    [[nodiscard]] boost::asio::ip::tcp::socket& socket() { return socket_; }
    [[nodiscard]] boost::asio::steady_timer& deadline() { return deadline_; }
    [[nodiscard]] OutgoingStream::Outlet& outlet() { return outlet_; }
    [[nodiscard]] std::size_t inputCapacity() const { return input_.capacity(); }
    /// While closing: says that nothing more will follow if all has been `sent`, and discards what
    /// the peer sends, because a socket that closes with unread input cuts off what is on its way.
    /// Gives the bytes that the peer has not acknowledged.
    std::size_t finish(bool sent);

    // The hub's notes about this connection, guarded as the hub says.
    enum class Input {
        Reading, ///< the loop thread reads
        Ready,   ///< in the list of those that have something
        Out      ///< handed out
    };
    Communicator* communicator = nullptr;
    Input input = Input::Reading;
    bool lossGiven = false;
    bool lossNoted = false;
    bool active = false; // the loop serves it
    bool waitingToRead = false;
    bool waitingToWrite = false;

private:
    [[nodiscard]] std::size_t unsentRoom();

    const std::shared_ptr<Loop> loop_; // before the socket, which needs it to the end
    boost::asio::ip::tcp::socket socket_;
    boost::asio::steady_timer deadline_;
    std::string peerName_;
    std::uint32_t peerAddress_ = 0;
    const std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
    bool hasBegun_ = false; // has sent something after its greeting
    std::string target_;
    std::array<std::byte, Greeting::kSize> greetingBytes_ = {};
    std::size_t greetingSize_ = 0;
    Greeting peer_; // written once, before the connection is shown to anyone
    InputBuffer input_;
    bool isDry_ = true;
    bool isFinished_ = false;
    OutgoingStream::Outlet outlet_;
    std::atomic<std::thread::id> replayThread_; // none but during the replay
    std::size_t replayBytes_ = 0;               // since the last part of it was sent
    bool hasUnsentLimit_ = false;
    std::chrono::system_clock::time_point since_;
    std::atomic<std::uint64_t> eventsIn_ = 0;
    std::atomic<std::uint64_t> bytesIn_ = 0;
    std::atomic<bool> ended_ = false;
    mutable std::mutex mutex_;
    std::string endReason_; // guarded by mutex_
};

} // namespace Corvid::detail
