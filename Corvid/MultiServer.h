#pragma once

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

/// Accepts clients and lets them find it by multicast. A client that connects anew ends its former
/// connection, of which nothing more is given. See MultiCommunicator for threads.
class ORVEL_EXPORT MultiServer : public MultiCommunicator {
public:
    /// `protocolVersion`: clients of another version are refused.
    explicit MultiServer(int protocolVersion);
    ~MultiServer() override;

    /// Listens. `host`: the name or address of the interface, empty for all; `port`: 0 lets the
    /// system choose; `announce`: whether to take part in discovery, which begins at the first
    /// waiting or receiving call. False, with a diagnostic, if that is impossible. When the
    /// multicast settings name interfaces, clients of other interfaces are turned away.
    bool open(const std::string& host, unsigned short port, bool announce);

    /// To be called when a client has begun a scene anew: connections made before that client's,
    /// whose peers are gone, are given as lost without what they have left unread. On the loop
    /// thread.
    void discardLeftovers(const Communicator* client);

    /// Which peers may connect, by their addresses; all at first. One that may not is told so and
    /// disconnected before anything else is exchanged. Called on the loop thread; set before the
    /// first waiting or receiving call. Must not throw.
    using Admission = std::function<bool(const InetAddress& peer)>;
    void setAdmission(Admission admission);

    /// The port listened to, 0 before opening.
    [[nodiscard]] std::uint16_t port() const;

    /// The interfaces on which clients find it, and those on which they cannot, with the reason.
    /// None before the first waiting or receiving call, or without taking part in discovery.
    /// Synchronised.
    [[nodiscard]] std::vector<Multicast::UsedInterface> interfaces() const;

    [[nodiscard]] Multicast& multicast() { return multicast_; }
    [[nodiscard]] const Multicast& multicast() const { return multicast_; }

private:
    Multicast multicast_;
    std::shared_ptr<detail::Listener> listener_;
};

} // namespace Corvid
