#pragma once

#include <Corvid/InetAddress.h>
#include <Corvid/Loop.h>
#include <Corvid/Multicast.h>
#include <Corvid/Socket.h>
#include <Corvid/detail/net/DatagramSeal.h>
#include <Corvid/detail/net/Keyring.h>
#include <Corvid/detail/net/Wire.h>

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <utility>
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
        DatagramSeal seal;            ///< with keys: by whom and for which query
        Loop::Clock::time_point when; ///< it arrived
    };
    /// A datagram that was ignored although its sender means well: because of its key, or because
    /// it has none.
    using KeyFault = std::function<void(const InetAddress& sender)>;
    using Handler = std::function<void(const Arrival&)>;
    /// A datagram about a clock, which came to an interface's own address, with its time of
    /// arrival.
    struct ClockArrival {
        ClockDatagram datagram;
        ClockDatagram::Bytes bytes; ///< with its code, to be checked
        Socket::Endpoint sender;
        Loop::Clock::time_point when;
        Link& link;
    };
    using ClockHandler = std::function<void(const ClockArrival&)>;

    Discovery(std::shared_ptr<Loop> loop, const Multicast& multicast, Handler handler);

    /// Whether the settings have changed since the last refresh().
    [[nodiscard]] bool isOutdated() const { return multicast_.revision() != revision_; }
    /// Applies changed settings and interfaces; unchanged interfaces keep their sockets. Returns
    /// true if there is a new interface.
    bool refresh();
    /// From now on only datagrams sealed with these keys are sent and taken. Call it before the
    /// first refresh(). `fault`: see there.
    void setKeys(std::shared_ptr<const Keyring> ring, KeyFault fault) {
        ring_ = std::move(ring);
        keyFault_ = std::move(fault);
    }
    /// Sends a query or an announcement to the group on all interfaces. With keys, answers to the
    /// latest `kept` queries are taken.
    void send(const DiscoveryDatagram& datagram, std::size_t kept = 1);
    /// Answers a query from the interface's own address.
    static void answer(const Arrival& query, const DiscoveryDatagram& datagram);
    /// Those that no handler takes are ignored.
    void setClockHandler(ClockHandler handler) { clockHandler_ = std::move(handler); }
    /// The interface with this address, if it can be used; otherwise null.
    [[nodiscard]] Link* linkAt(const InetAddress& own) const;
    /// Sends from an interface's own address.
    static void
    send(Link& link, const ClockDatagram::Bytes& datagram, const Socket::Endpoint& receiver);
    /// Closes all sockets.
    void stop();

    /// The interfaces as of the last refresh(), and requested ones that are missing.
    [[nodiscard]] std::vector<Multicast::UsedInterface> interfaces() const;
    /// Whether a datagram has come no further than this side would send one: with a TTL of at most
    /// 1, from a network of the interface.
    [[nodiscard]] bool isInReach(const Arrival& arrival) const;
    static constexpr std::size_t kMaxHeard = 4096;
    /// Number of invalid and unsolicited datagrams. Synchronised.
    [[nodiscard]] std::uint64_t ignored() const { return ignored_; }
    void countIgnored() { ++ignored_; }

private:
    void openLink(Link& link);
    static void setTtl(Link& link, int ttl);
    static void closeLink(Link& link);
    [[nodiscard]] Loop::Watch listen(const std::shared_ptr<Link>& link, Socket& socket);
    void receive(Link& link, Socket& socket);
    void receiveSealed(Arrival arrival, std::span<const std::byte> bytes);
    static void sendSealed(
        Link& link, const DiscoveryDatagram& datagram, const Keys::Key* key,
        const DatagramSeal::Nonce& nonce, const Socket::Endpoint& receiver);

    const std::shared_ptr<Loop> loop_;
    const Multicast& multicast_;
    Handler handler_;
    ClockHandler clockHandler_;
    Multicast::Settings settings_;
    std::uint64_t revision_ = 0;
    std::vector<std::shared_ptr<Link>> links_;
    std::shared_ptr<const Keyring> ring_; // null without keys
    KeyFault keyFault_;
    std::deque<DatagramSeal::Nonce> nonces_; // of queries, the latest first
    std::set<DatagramSeal::Code> heard_;     // of the latest queries, so that each counts once
    std::deque<DatagramSeal::Code> heardBy_; // the same in their order
    std::atomic<std::uint64_t> ignored_ = 0;
};

} // namespace Corvid::detail
