#pragma once

#include <Corvid/Communicator.h>
#include <Corvid/InetAddress.h>
#include <Corvid/MultiCommunicator.h>
#include <Corvid/Multicast.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <orvel_export.h>

namespace Corvid {

namespace detail {
class Listener;
}

/// Accepts clients, and makes itself discoverable by multicast. A client that reconnects closes its
/// former connection, whose unread events are discarded. See MultiCommunicator for threads.
class ORVEL_EXPORT MultiServer : public MultiCommunicator {
public:
    /// `protocolVersion`: clients with another version are refused.
    explicit MultiServer(int protocolVersion);
    ~MultiServer() override;

    /// Listens. `host`: the name or address of the interface, empty for all; `port`: 0 lets the
    /// system choose; `announce`: whether to take part in discovery, which starts at the first
    /// waiting or receiving call. On failure returns false, with a diagnostic. If the multicast
    /// settings name interfaces, clients on other interfaces are refused.
    bool open(const std::string& host, unsigned short port, bool announce);

    /// Call it when a client has started a new scene: connections made before that client's, whose
    /// peers are gone, are reported as lost, and their unread events are discarded. On the loop
    /// thread.
    void discardLeftovers(const Communicator* client);

    /// Decides by address which peers may connect; by default all. A refused peer is informed and
    /// disconnected before anything else is exchanged. Called on the loop thread; set it before the
    /// first waiting or receiving call. Must not throw.
    using Admission = std::function<bool(const InetAddress& peer)>;
    void setAdmission(Admission admission);

    /// Measures the clock of a client from now on, by questions in datagrams; where these are not
    /// answered, `ask` sends a question with that number over the connection, whose answer goes to
    /// Communicator::takeClockAnswer(). Called on the loop thread, as `ask` is. At most
    /// kMaxQuestions a second. Communicator::clock() has the result.
    void measureClock(
        Communicator& client, const Communicator::ClockOffer& offer,
        std::function<void(std::uint32_t number)> ask);
    static constexpr int kMaxQuestions = 400;

    /// The port listened to, 0 before opening.
    [[nodiscard]] std::uint16_t port() const;

    /// The interfaces on which clients can find it, and those on which they cannot, with the
    /// reason. Empty before the first waiting or receiving call, or without discovery.
    /// Synchronised.
    [[nodiscard]] std::vector<Multicast::UsedInterface> interfaces() const;

    [[nodiscard]] Multicast& multicast() { return multicast_; }
    [[nodiscard]] const Multicast& multicast() const { return multicast_; }

private:
    Multicast multicast_;
    std::shared_ptr<detail::Listener> listener_;
};

} // namespace Corvid
