#pragma once

#include <Corvid/Receiver.h>
#include <Corvid/Sender.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include <orvel_export.h>

namespace Corvid {

namespace detail {
class Connection;
class Hub;
} // namespace detail

/// One connection with one peer: frames for that peer alone go in, frames from it come out. Made by
/// a MultiCommunicator, which owns it until removeCommunicator() gives it to the caller.
///
/// sendFrame(), close() and counters() are synchronised; receiveFrame() belongs to the thread that
/// was handed the connection.
class ORVEL_EXPORT Communicator : public Sender, public Receiver {
public:
    /// A reading of what went over the connection. Sizes count frames without the greeting.
    struct Counters {
        std::string peer;               ///< "address:port"
        short peerId = 0;               ///< the id that the peer gave itself
        std::uint64_t peerInstance = 0; ///< the same for all connections of one peer object
        std::uint64_t eventsIn = 0;
        std::uint64_t bytesIn = 0;
        std::uint64_t eventsOut = 0;    ///< given to this connection, sent or waiting
        std::uint64_t bytesOut = 0;     ///< given to the system's socket
        std::uint64_t bytesWaiting = 0; ///< not yet given to the system's socket
        /// Of eventsOut: superseded before they left, see MultiCommunicator::setNewestOnly().
        std::uint64_t eventsLeftOut = 0;
        std::chrono::system_clock::time_point connectedSince;
        bool lost = false;
        std::string lossReason; ///< empty unless lost
    };

    Communicator(const Communicator&) = delete;
    Communicator& operator=(const Communicator&) = delete;
    /// Closes. Remove it from its MultiCommunicator first.
    ~Communicator() override;

    /// Queues a frame for this peer alone. What is sent inside addCommunicator() arrives before
    /// everything that is sent to all after the registration; later frames arrive in the order in
    /// which they and those to all were sent.
    bool sendFrame(const std::byte* frame, std::size_t size) override;
    /// Makes a diagnostic of it.
    void refuseEvent(const std::string& reason) override;
    /// Call once for each time that the connection is handed out; more calls give further frames
    /// that have arrived, or false if there are none. The bytes stay valid until the next call here
    /// or of the MultiCommunicator's waiting and receiving functions.
    bool receiveFrame(std::span<const std::byte>& frame) override;

    /// Ends the connection, which has sent something that is no event.
    void refuseFrame(const std::string& reason) override;

    /// Ends the connection at once, without waiting; what is queued is lost. Further calls do
    /// nothing.
    void close();

    /// The id that the peer gave itself.
    [[nodiscard]] short id() const;
    /// What the peer gave to setFeatures(): bits that say what its program understands. 0 from a
    /// peer that sets none.
    [[nodiscard]] std::uint16_t features() const;
    [[nodiscard]] Counters counters() const;

private:
    friend class detail::Hub;
    explicit Communicator(std::shared_ptr<detail::Connection> connection);

    std::shared_ptr<detail::Connection> connection_;
};

} // namespace Corvid
