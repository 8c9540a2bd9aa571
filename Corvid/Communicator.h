#pragma once

#include <Corvid/PeerClock.h>
#include <Corvid/Receiver.h>
#include <Corvid/Sender.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

#include <orvel_export.h>

namespace Corvid {

namespace detail {
class Connection;
class Hub;
} // namespace detail

/// One connection to one peer: sends frames to that peer alone, and receives its frames. Created by
/// a MultiCommunicator, which owns it until removeCommunicator() passes it to the caller.
///
/// sendFrame(), close() and counters() are synchronised; receiveFrame() belongs to the thread that
/// was given the connection.
class ORVEL_EXPORT Communicator : public Sender, public Receiver {
public:
    /// How a server keeps the times of a client that sends them; on both sides.
    struct Timing {
        PeerClock clock;    ///< the client's, as the server measures it
        bool ready = false; ///< it is known well enough; changes are held until then
        std::uint64_t batches = 0;
        std::uint64_t lateBatches = 0; ///< came too late, and were applied at once
        double worstLateness = 0.0;    ///< in seconds
        double sceneAge = 0.0;         ///< time since the latest change, in seconds
    };
    /// Statistics of the connection. Sizes count frames without the greeting.
    struct Counters {
        std::string peer;               ///< "address:port", or "NAME at address:port" with a key
        short peerId = 0;               ///< the id assigned to the peer
        std::uint64_t peerInstance = 0; ///< the same for all connections of one peer object
        std::uint64_t eventsIn = 0;
        std::uint64_t bytesIn = 0;
        std::uint64_t eventsOut = 0;    ///< queued for this connection, sent or not
        std::uint64_t bytesOut = 0;     ///< written to the system's socket
        std::uint64_t bytesWaiting = 0; ///< not yet written to the system's socket
        /// Part of eventsOut: superseded before they were sent, see
        /// MultiCommunicator::setNewestOnly().
        std::uint64_t eventsLeftOut = 0;
        std::chrono::system_clock::time_point connectedSince;
        Timing timing;
        bool lost = false;
        std::string lossReason; ///< empty unless lost
    };

    Communicator(const Communicator&) = delete;
    Communicator& operator=(const Communicator&) = delete;
    /// Closes the connection. Call removeCommunicator() of its MultiCommunicator first.
    ~Communicator() override;

    /// Queues a frame for this peer alone. Frames sent inside addCommunicator() arrive before all
    /// frames that are broadcast after the registration; later frames arrive in order with the
    /// broadcast ones.
    bool sendFrame(const std::byte* frame, std::size_t size) override;
    /// Reports it as a diagnostic.
    void refuseEvent(const std::string& reason) override;
    /// Call it once each time the connection is returned by a receiving function. Further calls
    /// return further frames that have arrived, or false if there are none. The bytes stay valid
    /// until the next call here or of a waiting or receiving function of the MultiCommunicator.
    bool receiveFrame(std::span<const std::byte>& frame) override;

    /// Closes the connection, because the peer sent an invalid frame.
    void refuseFrame(const std::string& reason) override;

    /// Closes the connection at once, without waiting; queued data is lost. Further calls do
    /// nothing.
    void close();

    /// The id assigned to the peer.
    [[nodiscard]] short id() const;
    /// The peer's setFeatures(): bits for the events that its program understands. 0 if it sets
    /// none.
    [[nodiscard]] std::uint16_t features() const;
    /// Whether the peer may change the scene: false if its key may only watch.
    [[nodiscard]] bool mayDrive() const { return mayDrive_; }
    [[nodiscard]] Counters counters() const;

    /// With which a server can measure a client's clock, see MultiServer::measureClock(): the
    /// client passes it to the server over the connection. Immutable.
    struct ClockOffer {
        std::uint64_t nonce = 0; ///< proves that a datagram comes from the peer; 0: no offer
        std::uint16_t port = 0;  ///< the client's UDP port at its address; 0: it has none
    };
    /// The offer of a client's connection; of a server's, nothing.
    [[nodiscard]] ClockOffer clockOffer() const;
    /// Passes the answer to a question that was asked over the connection, which has just arrived.
    /// On the loop thread of a server.
    void takeClockAnswer(std::uint32_t number, std::int64_t received, std::int64_t sent);
    /// The client's clock, if it is measured. Synchronised.
    [[nodiscard]] PeerClock clock() const;
    /// Sets the timing that counters() returns. Synchronised.
    void setTiming(const Timing& timing);
    /// When the latest bytes of the peer arrived; kept only where clocks are measured.
    /// Synchronised.
    [[nodiscard]] std::chrono::steady_clock::time_point lastArrival() const;

private:
    friend class detail::Hub;
    friend class MultiServer;
    explicit Communicator(std::shared_ptr<detail::Connection> connection);

    std::shared_ptr<detail::Connection> connection_;
    const bool mayDrive_; // a key that changes ends the connection
};

} // namespace Corvid
