#pragma once

#include <Corvid/InetAddress.h>
#include <Corvid/Loop.h>
#include <Corvid/Multicast.h>
#include <Corvid/Socket.h>
#include <Corvid/detail/net/wire.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Corvid::detail {

/// Whether an address of this machine belongs to the interfaces that the settings name; true if
/// they name none.
[[nodiscard]] bool mayUse(const Multicast::Settings& settings, const InetAddress& own);

/// Datagrams to and from the multicast group, on each interface for itself: a socket that hears the
/// group there and one that sends from the interface's own address and hears what comes back to it.
/// Confined to the loop thread but for ignored().
class Discovery {
public:
    /// The addresses that an interface reaches without a router.
    struct Network {
        std::uint32_t address;
        std::uint32_t mask;
    };
    /// One interface. `error` says why it cannot be used; empty if it can.
    struct Link {
        std::string name;
        InetAddress address;
        unsigned index = 0;
        std::vector<Network> networks;
        std::string error;
        Socket group;
        Socket own;
        Loop::Watch groupWatch;
        Loop::Watch ownWatch;

        /// Whether an address is in one of the interface's networks.
        [[nodiscard]] bool isNear(const InetAddress& other) const;
    };
    /// A datagram, its sender, and where it has arrived.
    struct Arrival {
        DiscoveryDatagram datagram;
        Socket::Endpoint sender;
        bool toGroup; ///< or else to the interface's own address
        Link& link;
    };
    using Handler = std::function<void(const Arrival&)>;

    Discovery(std::shared_ptr<Loop> loop, const Multicast& multicast, Handler handler);

    /// Whether the settings have changed since the last refresh().
    [[nodiscard]] bool isOutdated() const { return multicast_.revision() != revision_; }
    /// Takes up changed settings and interfaces; interfaces that stay as they are keep their
    /// sockets. True if there is a new interface.
    bool refresh();
    /// Sends to the group on all interfaces.
    void send(const DiscoveryDatagram& datagram);
    /// Sends from an interface's own address to one peer.
    static void
    answer(Link& link, const DiscoveryDatagram& datagram, const Socket::Endpoint& receiver);
    /// Closes all sockets; nothing arrives any more.
    void stop();

    /// The interfaces as of the last refresh(), and those that were asked for and are not there.
    [[nodiscard]] std::vector<Multicast::UsedInterface> interfaces() const;
    /// Whether a datagram has come no further than this side would send one: with a TTL of 1 or
    /// less, from a network of the interface.
    [[nodiscard]] bool isInReach(const Arrival& arrival) const;
    /// Datagrams that were none of ours. Synchronised.
    [[nodiscard]] std::uint64_t ignored() const { return ignored_; }
    void countIgnored() { ++ignored_; }

private:
    void openLink(Link& link);
    static void setTtl(Link& link, int ttl);
    static void closeLink(Link& link);
    [[nodiscard]] Loop::Watch listen(const std::shared_ptr<Link>& link, Socket& socket);
    void receive(Link& link, Socket& socket);

    const std::shared_ptr<Loop> loop_;
    const Multicast& multicast_;
    Handler handler_;
    Multicast::Settings settings_;
    std::uint64_t revision_ = 0;
    std::vector<std::shared_ptr<Link>> links_;
    std::atomic<std::uint64_t> ignored_ = 0;
};

} // namespace Corvid::detail
