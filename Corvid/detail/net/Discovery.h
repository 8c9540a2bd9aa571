#pragma once

#include <Corvid/InetAddress.h>
#include <Corvid/Loop.h>
#include <Corvid/Multicast.h>
#include <Corvid/Socket.h>
#include <Corvid/detail/net/Wire.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Corvid::detail {

/// Whether an address of this machine belongs to the interfaces of the settings; true if they name
/// none.
[[nodiscard]] bool mayUse(const Multicast::Settings& settings, const InetAddress& own);

/// Datagrams to and from the multicast group, separately per interface: one socket receives from
/// the group, another sends from the interface's own address and receives the answers. Confined to
/// the loop thread except ignored().
class Discovery {
public:
    /// A network that an interface reaches without a router.
    struct Network {
        std::uint32_t address;
        std::uint32_t mask;
    };
    /// One interface. `error` is the reason why it cannot be used; empty if it can.
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
    /// A datagram with its sender and interface.
    struct Arrival {
        DiscoveryDatagram datagram;
        Socket::Endpoint sender;
        bool toGroup; ///< otherwise to the interface's own address
        Link& link;
    };
    using Handler = std::function<void(const Arrival&)>;

    Discovery(std::shared_ptr<Loop> loop, const Multicast& multicast, Handler handler);

    /// Whether the settings have changed since the last refresh().
    [[nodiscard]] bool isOutdated() const { return multicast_.revision() != revision_; }
    /// Applies changed settings and interfaces; unchanged interfaces keep their sockets. Returns
    /// true if there is a new interface.
    bool refresh();
    /// Sends to the group on all interfaces.
    void send(const DiscoveryDatagram& datagram);
    /// Sends from an interface's own address to one peer.
    static void
    answer(Link& link, const DiscoveryDatagram& datagram, const Socket::Endpoint& receiver);
    /// Closes all sockets.
    void stop();

    /// The interfaces as of the last refresh(), and requested ones that are missing.
    [[nodiscard]] std::vector<Multicast::UsedInterface> interfaces() const;
    /// Whether a datagram has come no further than this side would send one: with a TTL of at most
    /// 1, from a network of the interface.
    [[nodiscard]] bool isInReach(const Arrival& arrival) const;
    /// Number of invalid and unsolicited datagrams. Synchronised.
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
