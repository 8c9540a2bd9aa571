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
/// It has no thread of its own. The loop thread is the one inside waitForCommunicators(),
/// receiveCommunicator() or communicatorsAvail(), one at a time; connections are made, read and
/// written there, so call one of them regularly. sendFrame(), breakWait(), the settings and
/// counters() are synchronised; everything else belongs to the loop thread. Call close() only when
/// no thread is inside any more.
class ORVEL_EXPORT MultiCommunicator : public Sender {
public:
    enum class Severity {
        Notice, ///< a peer connects or disconnects
        Warning ///< a peer is refused or dropped, or a system call fails
    };
    /// Receives one line without a line break. Called on the loop thread, or on the thread that
    /// opens, closes, makes an invalid setting or sends an oversized event, with no lock held; the
    /// last call is during close(). Must not throw.
    using Diagnostic = std::function<void(Severity, const std::string&)>;

    /// A connection that ended other than by close().
    struct Drop {
        std::string peer; ///< as Communicator::Counters::peer
        short peerId = 0;
        std::chrono::system_clock::time_point when;
        std::string reason;
    };

    /// Statistics since opening.
    struct Counters {
        std::vector<Communicator::Counters> connections; ///< the registered ones
        std::uint64_t connected = 0;                     ///< connections registered so far
        std::uint64_t refused = 0;  ///< connections that ended before they were registered
        std::uint64_t dropped = 0;  ///< registered connections that were lost
        std::uint64_t eventsIn = 0; ///< these five over all connections, lost ones included
        std::uint64_t bytesIn = 0;
        std::uint64_t eventsOut = 0;
        std::uint64_t bytesOut = 0;
        std::uint64_t eventsLeftOut = 0;
        std::uint64_t bytesKept = 0;        ///< memory used by queued data
        std::uint64_t datagramsIgnored = 0; ///< invalid or unsolicited discovery datagrams
        std::vector<Drop> lastDrops;        ///< newest last, at most kMaxDrops
    };

    static constexpr std::size_t kMaxDrops = 32;
    /// Limits of all connections, and of those that have not greeted yet.
    static constexpr std::size_t kMaxConnections = 1024;
    static constexpr std::size_t kMaxUngreeted = 64;
    /// A client that has sent nothing for this long after it connected gives way to others.
    static constexpr std::chrono::seconds kTimeToBegin{1};
    /// File descriptors reserved for the process when peers connect, or a quarter of its limit if
    /// that is less.
    static constexpr std::size_t kKeptDescriptors = 64;
    /// Limits of diagnostics in 10 s, about refused peers and about peers that connect and
    /// disconnect; the rest is counted and reported as a number.
    static constexpr unsigned kMaxRefusalLines = 20;
    static constexpr unsigned kMaxVisitLines = 1000;
    static constexpr std::size_t kDefaultLagLimit = std::size_t{64} << 20U; ///< 64 MiB

    MultiCommunicator(const MultiCommunicator&) = delete;
    MultiCommunicator& operator=(const MultiCommunicator&) = delete;
    ~MultiCommunicator() override;

    /// Queues a frame for every registered connection; never waits. Also returns true if there is
    /// none; returns false if closed or not open, or if the frame is invalid.
    bool sendFrame(const std::byte* frame, std::size_t size) override;

    /// The same only for connections whose peers have one of these features. Arrives in order with
    /// the frames of sendFrame().
    void sendFrameTo(std::uint16_t features, const std::byte* frame, std::size_t size);

    /// Marks the end of a batch of frames, such as all changes of one update; never waits. A
    /// program that does so regularly pays for one wake-up of the loop thread per batch; a frame
    /// that no end follows is sent within a few milliseconds. Without it, the first frame of a
    /// batch wakes the loop thread. Synchronised.
    void endBatch();

    /// Reports it as a diagnostic.
    void refuseEvent(const std::string& reason) override;

    /// Registers a new connection, which gets all broadcast frames from now on. Called when the
    /// peer has greeted, on the loop thread (or in MultiClient::deliver()). A derived class calls
    /// this first and then brings the peer up to date through the connection. If it returns false,
    /// the connection is closed and deleted. Must not throw.
    virtual bool addCommunicator(Communicator* communicator);
    /// Closes a connection and passes it to the caller, who deletes it. Returns false if it is not
    /// registered here.
    bool removeCommunicator(Communicator* communicator);

    /// Waits until a connection has data. Returns false after breakWait() or close().
    bool waitForCommunicators();
    /// Waits for at most `atMost`. Also returns false when that is over, and when another object
    /// that shares the loop has something.
    bool waitForCommunicators(std::chrono::steady_clock::duration atMost);
    /// The loop that it waits on. Other objects can share it; a program then waits in Loop::wait()
    /// for all of them. If that returns true, serve each of them.
    [[nodiscard]] std::shared_ptr<Loop> loop() const;
    /// Returns the next connection with data, for one frame; waits if there is none. Connections
    /// take turns of at most 64 frames or 4 KiB, so that none starves another. A lost connection is
    /// returned once, so that receiving from it fails. Returns false, and null, after breakWait()
    /// or close().
    bool receiveCommunicator(Communicator*& communicator);
    /// Returns the connection that was returned last if its turn goes on, for another frame;
    /// otherwise null. A short cut for receiveCommunicator().
    [[nodiscard]] Communicator* communicatorInTurn() const;
    /// Makes the waiting call, or the next one, return false. Any thread.
    void breakWait();
    /// Does due work without waiting, and counts the connections with data. Returns false if closed
    /// or not open.
    bool communicatorsAvail(int& count);

    /// Closes and deletes all connections. First waits until queued data has arrived, until peers
    /// have read nothing of it for half a second, and for at most 2 s. Further calls do nothing.
    void close();

    /// The id sent to peers; 0 by default.
    [[nodiscard]] short id() const;
    void setId(short id);
    /// Bits sent to peers, see Communicator::features(); the highest is reserved. For later
    /// connections. 0 by default. Synchronised.
    void setFeatures(std::uint16_t features);
    /// Whether small frames are sent at once instead of being collected by the system
    /// (TCP_NODELAY); for later connections. True by default.
    void setNoDelay(bool noDelay);
    /// The number of bytes by which a connection may lag before it is dropped.
    void setLagLimit(std::size_t bytes);
    /// Limit of connections, and for a client of found servers, per address; by default
    /// kMaxConnections, which is no limit. If a server has too many connections, in total or from
    /// one address, the oldest that has sent nothing for kTimeToBegin gives way; if there is none,
    /// the new one is refused. Synchronised.
    void setMaxPerAddress(std::size_t count);
    /// Call it before open(): a connection that lags by more than 256 KiB or a quarter of a second
    /// gets only the newest values until it has caught up; the others get every frame. `classify`
    /// relates frames to each other; it is called on the loop thread, only while a connection lags,
    /// and must not throw. If it is empty, the default, every frame is sent.
    void setNewestOnly(std::function<FrameRole(std::span<const std::byte> frame)> classify);
    /// Seals all connections with the keys of a file (see Keys): peers must hold one of them, and
    /// nothing that travels can be read or altered. A client uses the first key of its file. The
    /// file is read again within a second after it has changed; connections whose key is gone are
    /// closed. Call it before the first waiting or receiving call. Returns false, with a
    /// diagnostic, if the file has no usable keys; no one can connect then until it has.
    bool setKeys(const std::string& path);
    void setDiagnostic(Diagnostic diagnostic);
    [[nodiscard]] Counters counters() const;
    /// A random number that identifies this object.
    [[nodiscard]] std::uint64_t instanceId() const;

protected:
    /// `protocolVersion`: peers with another version are refused. Throws std::system_error if the
    /// process has no file descriptor left.
    explicit MultiCommunicator(int protocolVersion);
    [[nodiscard]] detail::Hub& hub() { return *hub_; }
    [[nodiscard]] const detail::Hub& hub() const { return *hub_; }

private:
    std::shared_ptr<detail::Hub> hub_;
};

} // namespace Corvid
