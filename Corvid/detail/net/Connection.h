#pragma once

#include <Corvid/Communicator.h>
#include <Corvid/Loop.h>
#include <Corvid/Socket.h>
#include <Corvid/detail/net/ClockProbe.h>
#include <Corvid/detail/net/ConnectionContext.h>
#include <Corvid/detail/net/InputBuffer.h>
#include <Corvid/detail/net/OutgoingStream.h>
#include <Corvid/detail/net/Seal.h>
#include <Corvid/detail/net/Wire.h>
#include <Vessa/Mutex.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <thread>

namespace Corvid::detail {

/// The socket of one connection with its input and its place in the outgoing stream. Confined to
/// the loop thread unless stated otherwise. Shared by its Communicator and the hub; the last of
/// them closes the socket.
class Connection : public std::enable_shared_from_this<Connection> {
public:
    enum class Status { Done, More, Blocked, Failed };

    // clang-format off
    /// The state of a connection between the loop thread and the host. Only HandOver changes it.
    ///
    /// | state    | meaning                                  | leads to                          |
    /// |----------|------------------------------------------|-----------------------------------|
    /// | Greeting | its greeting has not arrived             | Waiting, Out, Gone                |
    /// | Waiting  | queued for deliver(): it has greeted     | Out, Gone                         |
    /// | Out      | with the host, for a frame or its replay | Ready, Returned, LostOut, Removed |
    /// | Returned | the loop thread is to read it again      | Reading, Lost, Removed            |
    /// | Reading  | the loop thread reads it                 | Ready, Lost, Removed              |
    /// | Ready    | queued: it has whole frames              | Out, Lost, Removed                |
    /// | Lost     | queued: it has ended, frames may be left | LostOut, Over, Gone               |
    /// | LostOut  | with the host: it has ended              | Lost, Gone                        |
    /// | Over     | its loss was given to the host           | Gone                              |
    /// | Removed  | removed by the host, not forgotten yet   | Gone                              |
    /// | Gone     | forgotten                                |                                   |
    ///
    /// The input belongs to the host in Out and LostOut, to nobody while queued, and else to the
    /// loop thread. end() is synchronised: a connection that has ended stays in its state until the
    /// loop thread notices.
    // clang-format on
    enum class State {
        Greeting,
        Waiting,
        Out,
        Returned,
        Reading,
        Ready,
        Lost,
        LostOut,
        Over,
        Removed,
        Gone
    };

    /// Takes a connected socket. `target`: the name by which a server was given, or empty. `seal`:
    /// null for an open connection.
    Connection(
        std::shared_ptr<ConnectionContext> context, Socket socket, bool noDelay, std::string target,
        std::unique_ptr<Seal> seal);

    /// Begins a sealed connection, on the connecting side.
    bool beginSeal() { return seal_ == nullptr || flushSeal(); }
    /// Sends our greeting, of a sealed connection as soon as both sides have proven their key.
    bool sendGreeting(const Greeting& greeting);
    /// Reads the peer's greeting as far as it has arrived, and not a byte more; Done when it is
    /// complete.
    Status readGreeting();
    [[nodiscard]] bool hasSaidAnything() const { return greetingSize_ > 0; }
    [[nodiscard]] bool isSealed() const { return seal_ != nullptr; }
    /// Whether it has ended because of a key.
    [[nodiscard]] bool isKeyFault() const { return keyFault_; }
    /// The key that the peer has proven; null without one.
    [[nodiscard]] const Keys::Key* key() const {
        return seal_ != nullptr && seal_->isReady() ? &seal_->key() : nullptr;
    }
    /// Whether read() may return something without the socket being readable.
    [[nodiscard]] bool hasInput() const { return seal_ != nullptr && seal_->hasInput(); }
    /// Whether it is a client that connected at least `atLeast` ago and has sent no part of an
    /// event.
    [[nodiscard]] bool isIdle(std::chrono::steady_clock::duration atLeast);
    /// Reads once.
    Status read();
    /// Sends queued data; More if there is more but other connections must be served first.
    Status write();
    /// The same on another thread, while the loop thread rests. Returns false if the loop thread
    /// must do it or the rest of it.
    bool tryWrite();

    /// Whether the peer has closed the connection, or it is broken, even if there is unread input.
    [[nodiscard]] bool isPeerGone() const { return socket_.isPeerGone(); }
    /// Discards unread input.
    void discardInput() { input_.clear(); }

    /// Ends the connection; the first reason counts. Synchronised.
    void end(const std::string& reason) ORVEL_EXCLUDES(mutex_);
    /// The same because of a key. On the loop thread.
    void endByKey(const std::string& reason) ORVEL_EXCLUDES(mutex_);
    [[nodiscard]] bool isEnded() const { return ended_; }
    [[nodiscard]] std::string endReason() const ORVEL_EXCLUDES(mutex_);

    // For the thread that owns the input.
    [[nodiscard]] InputBuffer::Next next() const { return input_.next(); }
    bool receiveFrame(std::span<const std::byte>& frame);
    /// Whether its turn goes on: the host may take another frame.
    [[nodiscard]] bool isInTurn() const {
        return eventsIn_.load(std::memory_order_relaxed) < turnEndFrames_ &&
               bytesIn_.load(std::memory_order_relaxed) < turnEndBytes_ &&
               next() == InputBuffer::Next::Frame && !ended_;
    }

    /// On the loop thread, while it brings the peer up to date: frames queued by this thread are
    /// sent in large parts at once, so that the peer can work meanwhile.
    void beginReplay() { replayThread_ = std::this_thread::get_id(); }
    /// The loop sends the rest.
    void endReplay();

    /// Queues a frame for this peer; not while it joins unless `alsoJoining`. Synchronised.
    bool sendFrame(const std::byte* frame, std::size_t size, bool alsoJoining = true);
    /// Reports a frame that could not be sent. Synchronised.
    void report(const std::string& text) const;
    /// Synchronised.
    [[nodiscard]] Communicator::Counters counters() const;

    [[nodiscard]] const std::string& peerName() const { return peerName_; }
    [[nodiscard]] std::chrono::steady_clock::time_point since() const { return begin_; }
    [[nodiscard]] const InetAddress& peerAddress() const { return peerAddress_; }
    [[nodiscard]] const Greeting& peer() const { return peer_; }
    [[nodiscard]] const std::string& target() const { return target_; }
    /// Whether it is to a server given by its host and port, not found by a search.
    [[nodiscard]] bool isNamed() const { return !target_.empty() && !target_.starts_with('#'); }
    [[nodiscard]] const Socket& socket() const { return socket_; }
    [[nodiscard]] OutgoingStream::Outlet& outlet() { return outlet_; }
    [[nodiscard]] std::size_t inputCapacity() const { return input_.capacity(); }
    /// While closing: shuts down the output if everything has been `sent`, and discards the peer's
    /// data, because closing a socket with unread input would destroy data in flight. Returns the
    /// number of bytes that the peer has not acknowledged.
    std::size_t finish(bool sent);

    /// The client's side of measuring its clock. Set before the connection is visible to others.
    void setClockOffer(const Communicator::ClockOffer& offer);
    [[nodiscard]] const Communicator::ClockOffer& clockOffer() const { return clockOffer_; }
    /// The server's side: asks the questions; null if the clock is not measured.
    [[nodiscard]] ClockProbe* probe() const { return probe_.get(); }
    void setProbe(std::unique_ptr<ClockProbe> probe);
    void takeClockAnswer(std::uint32_t number, std::int64_t received, std::int64_t sent);
    /// Makes the probe's estimate visible.
    void publishClock() ORVEL_EXCLUDES(mutex_);
    /// Synchronised.
    [[nodiscard]] PeerClock clock() const ORVEL_EXCLUDES(mutex_);
    void setTiming(const Communicator::Timing& timing) ORVEL_EXCLUDES(mutex_);
    /// Synchronised.
    [[nodiscard]] std::chrono::steady_clock::time_point lastArrival() const;

    /// Watches nothing once the connection is lost.
    Loop::Watch watch;
    /// The host's handle; null before addCommunicator() and after the removal. Belongs to the
    /// host's thread.
    Communicator* communicator = nullptr;

private:
    friend class HandOver;

    Status writeLocked();
    Socket::Transfer sendSealed(const iovec* pieces, std::size_t bytes);
    Socket::Transfer receive(std::span<std::byte> room);
    bool flushSeal();
    bool finishSeal();

    const std::shared_ptr<ConnectionContext> context_;
    Socket socket_;
    std::string peerName_ = "a peer that is gone";
    InetAddress peerAddress_;
    const std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
    std::string target_;
    const std::unique_ptr<Seal> seal_; // the loop thread's
    std::optional<Greeting> greeting_; // to be sent when the seal is ready
    bool keyFault_ = false;
    std::array<std::byte, Greeting::kSize> greetingBytes_ = {};
    std::size_t greetingSize_ = 0;
    Greeting peer_; // written once, before the connection is visible to others
    InputBuffer input_;
    std::uint64_t bytesRead_ = 0; // after the greeting
    OutgoingStream::Outlet outlet_;
    std::atomic<std::thread::id> replayThread_; // set only during the replay
    std::size_t replayBytes_ = 0;               // since the last part of it was sent
    std::chrono::system_clock::time_point since_;
    std::atomic<std::uint64_t> eventsIn_ = 0;
    std::atomic<std::uint64_t> bytesIn_ = 0;
    // Written by HandOver, as the state; while the host has it, what eventsIn_ and bytesIn_ are at
    // the end of its turn.
    std::uint64_t turnEndFrames_ = 0;
    std::uint64_t turnEndBytes_ = 0;
    State state_ = State::Greeting; // belongs to HandOver
    Communicator::ClockOffer clockOffer_;
    std::unique_ptr<ClockProbe> probe_;
    bool stampsArrivals_ = false;
    std::atomic<std::chrono::steady_clock::time_point> lastArrival_ = begin_;
    std::atomic<bool> ended_ = false;
    mutable Vessa::Mutex mutex_;
    std::string endReason_ ORVEL_GUARDED_BY(mutex_);
    PeerClock clock_ ORVEL_GUARDED_BY(mutex_);
    Communicator::Timing timing_ ORVEL_GUARDED_BY(mutex_);
};

} // namespace Corvid::detail
