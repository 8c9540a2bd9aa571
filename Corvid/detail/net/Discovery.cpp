#include <Corvid/detail/net/Discovery.h>

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <ifaddrs.h>
#include <map>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <utility>

namespace Corvid::detail {

namespace {

struct Interface {
    std::string name;
    InetAddress address;
    unsigned index;
    std::vector<Discovery::Network> networks;
};

template <class List>
bool isIn(const List& list, const typename List::value_type& value) {
    return std::find(list.begin(), list.end(), value) != list.end();
}

Discovery::Network networkOf(const ifaddrs& one, const InetAddress& address) {
    if ((one.ifa_flags & IFF_POINTOPOINT) != 0) {
        return {0, 0}; // no network of its own: a tunnel to one peer
    }
    const auto* mask = reinterpret_cast<const sockaddr_in*>(one.ifa_netmask);
    const std::uint32_t bits = mask == nullptr ? ~0U : ntohl(mask->sin_addr.s_addr);
    return {address.bits() & bits, bits};
}

/// The interfaces that are up and can multicast, restricted to those of the settings. Unless its
/// address is requested, one address per interface is enough.
std::vector<Interface> findInterfaces(const Multicast::Settings& settings) {
    std::vector<Interface> found;
    std::map<unsigned, std::vector<Discovery::Network>> networks; // by the interface's index
    ifaddrs* all = nullptr;
    if (::getifaddrs(&all) != 0) {
        return found;
    }
    const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> owner(all, &::freeifaddrs);
    for (const ifaddrs* one = all; one != nullptr; one = one->ifa_next) {
        const bool usable = one->ifa_addr != nullptr && one->ifa_addr->sa_family == AF_INET &&
                            (one->ifa_flags & IFF_UP) != 0 &&
                            (one->ifa_flags & (IFF_MULTICAST | IFF_LOOPBACK)) != 0;
        if (!usable) {
            continue;
        }
        const auto* address = reinterpret_cast<const sockaddr_in*>(one->ifa_addr);
        const Interface candidate = {
            one->ifa_name,
            InetAddress::fromBits(ntohl(address->sin_addr.s_addr)),
            ::if_nametoindex(one->ifa_name),
            {}};
        networks[candidate.index].push_back(networkOf(*one, candidate.address));
        const bool isFirst = std::none_of(found.begin(), found.end(), [&](const Interface& other) {
            return other.index == candidate.index;
        });
        const bool take =
            isIn(settings.interfaces, candidate.address) ||
            (isFirst && (!settings.restricted() || isIn(settings.interfaceNames, candidate.name)));
        if (take) {
            found.push_back(candidate);
        }
    }
    for (Interface& one : found) {
        one.networks = networks[one.index];
    }
    return found;
}

} // namespace

bool mayUse(const Multicast::Settings& settings, const InetAddress& own) {
    if (!settings.restricted() || isIn(settings.interfaces, own)) {
        return true;
    }
    ifaddrs* all = nullptr;
    if (settings.interfaceNames.empty() || ::getifaddrs(&all) != 0) {
        return false;
    }
    const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> owner(all, &::freeifaddrs);
    for (const ifaddrs* one = all; one != nullptr; one = one->ifa_next) {
        if (one->ifa_addr != nullptr && one->ifa_addr->sa_family == AF_INET &&
            reinterpret_cast<const sockaddr_in*>(one->ifa_addr)->sin_addr.s_addr ==
                htonl(own.bits()) &&
            isIn(settings.interfaceNames, one->ifa_name)) {
            return true;
        }
    }
    return false;
}

Discovery::Discovery(std::shared_ptr<Loop> loop, const Multicast& multicast, Handler handler)
    : loop_(std::move(loop)), multicast_(multicast), handler_(std::move(handler)) {}

bool Discovery::refresh() {
    const std::uint64_t revision = multicast_.revision();
    if (revision != revision_) {
        const Multicast::Settings old = std::exchange(settings_, multicast_.settings());
        revision_ = revision;
        if (old.address != settings_.address || old.port != settings_.port) {
            stop();
        }
    }
    std::vector<Interface> interfaces = findInterfaces(settings_);
    std::erase_if(links_, [&](const std::shared_ptr<Link>& link) {
        const auto same = [&](const Interface& one) {
            return one.address == link->address && one.index == link->index;
        };
        const auto found = std::find_if(interfaces.begin(), interfaces.end(), same);
        // Interfaces that could not be opened are tried again.
        const bool keep = found != interfaces.end() && link->error.empty();
        if (keep) {
            link->networks = std::move(found->networks); // they may change
            interfaces.erase(found);
            setTtl(*link, settings_.ttl);
        } else {
            closeLink(*link);
        }
        return !keep;
    });
    bool opened = false;
    for (const Interface& one : interfaces) {
        const auto link = std::make_shared<Link>();
        link->name = one.name;
        link->address = one.address;
        link->index = one.index;
        link->networks = one.networks;
        links_.push_back(link);
        openLink(*link);
        if (link->error.empty()) {
            link->groupWatch = listen(link, link->group);
            link->ownWatch = listen(link, link->own);
            opened = true;
        }
    }
    for (const InetAddress& address : settings_.interfaces) {
        const auto same = [&](const auto& link) { return link->address == address; };
        if (std::none_of(links_.begin(), links_.end(), same)) {
            const auto link = std::make_shared<Link>(); // to report it as missing
            link->address = address;
            link->error = "no interface that is up has this address";
            links_.push_back(link);
        }
    }
    for (const std::string& name : settings_.interfaceNames) {
        const auto same = [&](const auto& link) { return link->name == name; };
        if (std::none_of(links_.begin(), links_.end(), same)) {
            const auto link = std::make_shared<Link>();
            link->name = name;
            link->error = "no interface of this name is up and has an IPv4 address";
            links_.push_back(link);
        }
    }
    return opened;
}

std::vector<Multicast::UsedInterface> Discovery::interfaces() const {
    std::vector<Multicast::UsedInterface> result;
    for (const auto& link : links_) {
        result.push_back({link->name, link->address, link->error});
    }
    return result;
}

void Discovery::openLink(Link& link) {
    const ip_mreqn membership = {
        {htonl(settings_.address.bits())},
        {htonl(link.address.bits())},
        static_cast<int>(link.index)};
    std::error_code error;
    const auto open = [&error](Socket& socket) {
        error = socket.open(Socket::Type::Datagram);
        return !error;
    };
    const auto bind = [&error](Socket& socket, const Socket::Endpoint& own) {
        error = socket.bind(own);
        return !error;
    };
    const auto set = [&error](Socket& socket, int option, const auto& value) {
        const bool good = socket.set(IPPROTO_IP, option, value);
        if (!good) {
            error = {errno, std::generic_category()};
        }
        return good;
    };
    const bool good =
        open(link.group) && link.group.set(SOL_SOCKET, SO_REUSEADDR, 1) && // others hear it too
        bind(link.group, {settings_.address, settings_.port}) &&
        set(link.group, IP_MULTICAST_ALL, 0) && // only datagrams of this interface
        set(link.group, IP_ADD_MEMBERSHIP, membership) && open(link.own) &&
        bind(link.own, {link.address, 0}) && set(link.own, IP_MULTICAST_IF, membership) &&
        set(link.own, IP_MULTICAST_LOOP, 1); // for other programs of this machine
    if (good) {
        link.own.stampArrivals();
        setTtl(link, settings_.ttl);
    } else {
        link.error = error.message();
        closeLink(link);
    }
}

void Discovery::setTtl(Link& link, int ttl) {
    link.own.set(IPPROTO_IP, IP_MULTICAST_TTL, ttl);
}

void Discovery::closeLink(Link& link) {
    link.groupWatch = {};
    link.ownWatch = {};
    link.group.close();
    link.own.close();
}

Loop::Watch Discovery::listen(const std::shared_ptr<Link>& link, Socket& socket) {
    Loop::Watch watch(loop_, socket, [this, link = std::weak_ptr(link), &socket](auto) {
        if (const auto held = link.lock()) {
            receive(*held, socket);
        }
    });
    watch.want(true, false);
    return watch;
}

void Discovery::receive(Link& link, Socket& socket) {
    constexpr int kMaxInARow = 64; // in a flood, before the connections are served
    for (int i = 0; i < kMaxInARow && socket; ++i) {
        // One byte more detects longer ones.
        std::array<std::byte, std::max(DatagramSeal::kDatagramSize, ClockDatagram::kSize) + 1>
            bytes;
        Socket::Endpoint sender;
        Loop::Clock::time_point when;
        const Socket::Transfer got = socket.receive(bytes, sender, when);
        if (got.blocked()) {
            return;
        }
        if (got.error) { // such as a closed port of a peer; the next one may be fine
            continue;
        }
        const auto clock = ClockDatagram::decode(std::span(bytes).first(got.bytes));
        if (clock && sender.address.isValid() && clockHandler_ && &socket == &link.own) {
            ClockDatagram::Bytes whole;
            std::copy_n(bytes.begin(), whole.size(), whole.begin());
            clockHandler_({*clock, whole, sender, when, link});
            continue;
        }
        const bool isSealed = got.bytes == DatagramSeal::kDatagramSize;
        const auto datagram = DiscoveryDatagram::decode(
            std::span(bytes).first(isSealed ? DiscoveryDatagram::kSize : got.bytes));
        if (!datagram || !sender.address.isValid()) {
            countIgnored();
            continue;
        }
        const Arrival arrival{*datagram, sender, &socket == &link.group, link, {}, when};
        if (isSealed == (ring_ == nullptr)) {
            countIgnored();
            if (ring_ != nullptr && arrival.toGroup) {
                keyFault_(sender.address);
            }
        } else if (isSealed) {
            receiveSealed(arrival, std::span(bytes).first(got.bytes));
        } else {
            handler_(arrival);
        }
    }
}

/// A datagram counts if its sender holds a key, and if it is no repetition: an answer must belong
/// to one of the latest queries, and a query must be a new one.
void Discovery::receiveSealed(Arrival arrival, std::span<const std::byte> bytes) {
    const bool isQuery = arrival.datagram.kind == DiscoveryDatagram::Kind::Query;
    const auto seal = DatagramSeal::open(
        bytes.first<DatagramSeal::kDatagramSize>(), ring_->keys(), arrival.sender);
    if (!seal) {
        countIgnored();
        if (isQuery) {
            keyFault_(arrival.sender.address);
        }
        return;
    }
    if (isQuery) {
        if (!heard_.insert(seal->code).second) {
            countIgnored();
            return;
        }
        heardBy_.push_back(seal->code);
        if (heardBy_.size() > kMaxHeard) {
            heard_.erase(heardBy_.front());
            heardBy_.pop_front();
        }
    } else if (!isIn(nonces_, seal->nonce)) {
        countIgnored();
        return;
    }
    arrival.seal = *seal;
    handler_(arrival);
}

bool Discovery::Link::isNear(const InetAddress& other) const {
    return std::any_of(networks.begin(), networks.end(), [&other](const Network& network) {
        return (other.bits() & network.mask) == network.address;
    });
}

bool Discovery::isInReach(const Arrival& arrival) const {
    return multicast_.ttl() > 1 || arrival.link.isNear(arrival.sender.address);
}

void Discovery::send(const DiscoveryDatagram& datagram, std::size_t kept) {
    const Keys::Key* key = ring_ == nullptr ? nullptr : ring_->own();
    if (ring_ != nullptr && key == nullptr) {
        return; // nobody could believe it
    }
    nonces_.push_front(key == nullptr ? DatagramSeal::Nonce{} : DatagramSeal::newNonce());
    nonces_.resize(std::min(nonces_.size(), kept));
    for (const auto& link : links_) {
        if (link->error.empty()) {
            sendSealed(*link, datagram, key, nonces_.front(), {settings_.address, settings_.port});
        }
    }
}

void Discovery::answer(const Arrival& query, const DiscoveryDatagram& datagram) {
    sendSealed(query.link, datagram, query.seal.key, query.seal.nonce, query.sender);
}

/// `key`: null for an open datagram. If it is lost, the next search makes up for it.
void Discovery::sendSealed(
    Link& link, const DiscoveryDatagram& datagram, const Keys::Key* key,
    const DatagramSeal::Nonce& nonce, const Socket::Endpoint& receiver) {
    if (key == nullptr) {
        link.own.send(datagram.encode(), receiver);
    } else {
        link.own.send(DatagramSeal::seal(datagram, *key, nonce, link.own.own()), receiver);
    }
}

Discovery::Link* Discovery::linkAt(const InetAddress& own) const {
    const auto found = std::find_if(links_.begin(), links_.end(), [&own](const auto& link) {
        return link->address == own && link->error.empty();
    });
    return found == links_.end() ? nullptr : found->get();
}

void Discovery::send(
    Link& link, const ClockDatagram::Bytes& datagram, const Socket::Endpoint& receiver) {
    link.own.send(datagram, receiver); // if it is lost, so is one of many measurements
}

void Discovery::stop() {
    for (const auto& link : links_) {
        closeLink(*link);
    }
    links_.clear();
}

} // namespace Corvid::detail
