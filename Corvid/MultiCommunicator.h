#pragma once

#include <Corvid/Communicator.h>
#include <Corvid/FrameRole.h>
#include <Corvid/Loop.h>
#include <Corvid/Sender.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include <orvel_export.h>

namespace Corvid {

/// Any number of connections: broadcasts to all, and receives from whichever has data.
///
/// It has no thread of its own. The loop thread is whichever is inside waitForCommunicators(),
/// receiveCommunicator() or communicatorsAvail(), one at a time; connections are made, read and
/// written there, so somebody must come back regularly. sendFrame(), breakWait(), the settings and
/// counters() are synchronised; everything else belongs to the loop thread, and close() to whoever
/// knows that no thread is inside any more.
class ORVEL_EXPORT MultiCommunicator : public Sender {
public:
    enum class Severity {
        Notice, ///< a peer comes or goes
        Warning ///< a peer is refused or dropped, or the system refuses something
    };
    /// Takes one line without a line break. Called on the loop thread, or on the thread that opens,
    /// closes, makes a setting that cannot be, or sends what is too large, with no lock held; the
    /// last call is during close(). Must not throw.
    using Diagnostic = std::function<void(Severity, const std::string&)>;

    /// A connection that ended other than by close().
    struct Drop {
        std::string peer; ///< "address:port"
        short peerId = 0;
        std::chrono::system_clock::time_point when;
        std::string reason;
    };

    /// A reading of all that went on since opening.
    struct Counters {
        std::vector<Communicator::Counters> connections; ///< those that are registered now
        std::uint64_t connected = 0;                     ///< connections registered so far
        std::uint64_t refused = 0;  ///< connections that ended before they were registered
        std::uint64_t dropped = 0;  ///< registered connections that were lost
        std::uint64_t eventsIn = 0; ///< these five over all connections, lost ones included
        std::uint64_t bytesIn = 0;
        std::uint64_t eventsOut = 0;
        std::uint64_t bytesOut = 0;
        std::uint64_t eventsLeftOut = 0;
        std::uint64_t bytesKept = 0;        ///< memory in use for what waits to be sent
        std::uint64_t datagramsIgnored = 0; ///< discovery datagrams that made no sense
        std::vector<Drop> lastDrops;        ///< the newest last, at most kMaxDrops
    };

    static constexpr std::size_t kMaxDrops = 32;
    /// Connections in all, and those of them that have not shown yet who they are.
    static constexpr std::size_t kMaxConnections = 1024;
    static constexpr std::size_t kMaxUngreeted = 64;
    /// A client that has sent nothing for so long after it came gives way to others.
    static constexpr std::chrono::seconds kTimeToBegin{1};
    /// File descriptors that are left to the process when peers connect, or a quarter of what it
    /// may have if that is less.
    static constexpr std::size_t kKeptDescriptors = 64;
    /// Diagnostics about refused peers, and about peers that come and go, in 10 s; the rest is
    /// counted, and a further one says how many there were.
    static constexpr unsigned kMaxRefusalLines = 20;
    static constexpr unsigned kMaxVisitLines = 1000;
    static constexpr std::size_t kDefaultLagLimit = std::size_t{64} << 20U; ///< 64 MiB

    MultiCommunicator(const MultiCommunicator&) = delete;
    MultiCommunicator& operator=(const MultiCommunicator&) = delete;
    ~MultiCommunicator() override;

    /// Queues a frame for every registered connection, and never waits. True also when there is
    /// none; false when closed or not opened, or for what is no frame.
    bool sendFrame(const std::byte* frame, std::size_t size) override;

    /// Makes a diagnostic of it.
    void refuseEvent(const std::string& reason) override;

    /// Registers a new connection: it gets what is sent to all from here on. Called when the peer
    /// has shown who it is, on the loop thread (or in MultiClient::deliver()); a derived class
    /// calls this first and then brings the peer up to date through the connection. A connection
    /// for which the result is false is closed and deleted. Must not throw.
    virtual bool addCommunicator(Communicator* communicator);
    /// Ends a connection and gives it to the caller, who deletes it. False if it is not ours.
    bool removeCommunicator(Communicator* communicator);

    /// Waits until a connection has something to receive. False after breakWait() or close().
    bool waitForCommunicators();
    /// The same for `atMost`; false too when that is over, and when another object that shares the
    /// loop has something.
    bool waitForCommunicators(std::chrono::steady_clock::duration atMost);
    /// The loop that waits. Other objects can share it, and a program then waits in Loop::wait()
    /// for all of them: true means that one has something, so serve each of them.
    [[nodiscard]] std::shared_ptr<Loop> loop() const;
    /// Gives the next connection that has something to receive, in turn, one frame each; waits if
    /// there is none. A lost connection is given once, so that receiving from it fails. False, and
    /// null, after breakWait() or close().
    bool receiveCommunicator(Communicator*& communicator);
    /// Makes the waiting call return false, or the next one if there is none. From any thread.
    void breakWait();
    /// Does what is due without waiting, and counts the connections that have something to receive.
    /// False when closed or not opened.
    bool communicatorsAvail(int& count);

    /// Ends everything and deletes the connections that are left. First waits until what is queued
    /// has arrived, until peers have taken nothing of it for half a second, and for 2 s at most.
    /// Further calls do nothing.
    void close();

    /// The id that peers are told; 0 at first.
    [[nodiscard]] short id() const;
    void setId(short id);
    /// Bits that this object's peers see, see Communicator::features(); the highest is not free.
    /// For connections made from now on. 0 at first. Synchronised.
    void setFeatures(std::uint16_t features);
    /// Whether small frames leave at once instead of being collected by the system (TCP_NODELAY);
    /// for connections made from now on. True at first.
    void setNoDelay(bool noDelay);
    /// Bytes by which a connection may lag before it is dropped.
    void setLagLimit(std::size_t bytes);
    /// How many connections, and with a client how many servers that were found, one address may
    /// have at a time; kMaxConnections at first, which is no limit. When a server's connections are
    /// too many, in all or of one address, the oldest gives way that has sent nothing for
    /// kTimeToBegin; without one the newcomer is refused. Synchronised.
    void setMaxPerAddress(std::size_t count);
    /// Before open(): a connection that lags by more than 256 KiB or a quarter of a second gets
    /// only the newest values until it has caught up; the others get every frame. `classify` says
    /// how a frame relates to others; it is called on the loop thread, only while a connection
    /// lags, and must not throw. Each frame is sent if it is empty, as at first.
    void setNewestOnly(std::function<FrameRole(std::span<const std::byte> frame)> classify);
    void setDiagnostic(Diagnostic diagnostic);
    [[nodiscard]] Counters counters() const;
    /// A random number that tells this object from all others.
    [[nodiscard]] std::uint64_t instanceId() const;

protected:
    /// `protocolVersion`: peers of another version are refused. Throws std::system_error when the
    /// process has no file descriptor left.
    explicit MultiCommunicator(int protocolVersion);
    [[nodiscard]] detail::Hub& hub() { return *hub_; }
    [[nodiscard]] const detail::Hub& hub() const { return *hub_; }

private:
    std::shared_ptr<detail::Hub> hub_;
};

} // namespace Corvid
