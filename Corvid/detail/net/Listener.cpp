#include <Corvid/detail/net/Listener.h>

#include <algorithm>
#include <chrono>
#include <fcntl.h>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace Corvid::detail {

namespace {

using namespace std::chrono_literals;

constexpr auto kRefreshInterval = 3s; // to notice changed interfaces
constexpr auto kFullPause = 100ms;
constexpr int kMaxAccepted = 16; // before the others are served
constexpr int kBacklog = 128;
constexpr int kReservedDescriptors = 500;

/// Has the system enlarge its table of this process's descriptors now. While threads run, that
/// stops the thread that gets the next descriptor for 10 ms and more.
void reserveDescriptors() {
    if (const int last = ::fcntl(0, F_DUPFD_CLOEXEC, kReservedDescriptors); last >= 0) {
        ::close(last);
    }
}

} // namespace

Listener::Listener(Hub& hub, const Multicast& multicast)
    : hub_(hub), multicast_(multicast),
      discovery_(
          hub.loop(), multicast, [this](const Discovery::Arrival& arrival) { answer(arrival); }) {
    discovery_.setClockHandler(
        [this](const Discovery::ClockArrival& arrival) { takeClock(arrival); });
}

std::string Listener::listen(const std::string& host, std::uint16_t port, bool announce) {
    Socket::Endpoint endpoint{InetAddress(), port};
    if (!host.empty()) {
        addrinfo hints = {};
        hints.ai_family = AF_INET;
        hints.ai_socktype = SOCK_STREAM;
        addrinfo* found = nullptr;
        if (const int error = ::getaddrinfo(host.c_str(), nullptr, &hints, &found); error != 0) {
            return ::gai_strerror(error);
        }
        const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> owner(found, &::freeaddrinfo);
        const auto* address = reinterpret_cast<const sockaddr_in*>(found->ai_addr);
        endpoint.address = InetAddress::fromBits(ntohl(address->sin_addr.s_addr));
    }
    reserveDescriptors();
    std::error_code error = socket_.open(Socket::Type::Stream);
    if (!error) {
        socket_.set(SOL_SOCKET, SO_REUSEADDR, 1);
        error = socket_.bind(endpoint);
    }
    if (!error) {
        error = socket_.listen(kBacklog);
    }
    if (error) {
        socket_.close();
        return error.message();
    }
    watch_ = Loop::Watch(hub_.loop(), socket_, [this](auto) { acceptClients(); });
    watch_.want(true, false);
    port_ = socket_.own().port;
    announce_ = announce;
    return {};
}

void Listener::setKeys(const std::shared_ptr<Keyring>& ring) {
    discovery_.setKeys(ring, [this](const InetAddress& sender) {
        hub_.reportRefusalOnce(
            sender.text(), "it searches for servers without a key of this server");
    });
}

void Listener::acceptClients() {
    const Multicast::Settings settings = multicast_.settings();
    for (int i = 0; i < kMaxAccepted; ++i) {
        Socket socket;
        const std::error_code error = socket_.accept(socket);
        if (error == std::errc::operation_would_block) {
            break;
        }
        if (error == std::errc::connection_aborted || error == std::errc::interrupted) {
            continue;
        }
        if (error) { // no descriptor or memory is left; asking again at once would not help
            if (!std::exchange(reportedFull_, true)) {
                hub_.reportRefusal("cannot accept a client: " + error.message() + "; trying again");
            }
            watch_.want(false, false);
            acceptAgain_ = Clock::now() + kFullPause;
            return;
        }
        reportedFull_ = false;
        if (admit(socket, settings)) {
            hub_.adopt(std::move(socket), {});
        }
    }
}

bool Listener::admit(Socket& socket, const Multicast::Settings& settings) {
    if (settings.restricted() && !mayUse(settings, socket.own().address)) {
        hub_.countRefusal();
        hub_.reportRefusal("refused a client on an excluded interface");
        return false;
    }
    if (!admission_) {
        return true;
    }
    const InetAddress peer = socket.peer().address;
    if (!peer.isValid()) { // it is gone
        return false;
    }
    if (admission_(peer)) {
        return true;
    }
    if (hub_.keyring() == nullptr) { // else no stranger is to know of it
        Greeting refusal = hub_.greeting();
        refusal.features = Greeting::kNotAdmitted;
        socket.send(refusal.encode()); // on failure, the client still finds the connection closed
    }
    socket.endSending();
    hub_.countRefusal();
    hub_.reportRefusal("refused a client at " + peer.text() + ": its address is not allowed");
    return false;
}

bool Listener::accept(Connection& connection) {
    // The peer keeps one connection, and has given up earlier ones.
    hub_.replaceBy(connection);
    return true;
}

void Listener::lost(Connection& /*connection*/) {}

Listener::Clock::time_point Listener::serve(Clock::time_point now) {
    if (now >= acceptAgain_) {
        acceptAgain_ = Clock::time_point::max();
        watch_.want(true, false);
    }
    if (announce_ && (discovery_.isOutdated() || now >= refreshAgain_)) {
        refresh(now);
    }
    return std::min({acceptAgain_, refreshAgain_, askForClocks(now)});
}

void Listener::refresh(Clock::time_point now) {
    refreshAgain_ = now + kRefreshInterval;
    if (discovery_.refresh() && hub_.keyring() == nullptr) { // else no stranger is to know of it
        discovery_.send(datagram(DiscoveryDatagram::Kind::Announce, 0));
    }
    auto interfaces = discovery_.interfaces();
    const Vessa::Lock lock(mutex_);
    interfaces_.swap(interfaces);
}

std::vector<Multicast::UsedInterface> Listener::interfaces() const {
    const Vessa::Lock lock(mutex_);
    return interfaces_;
}

DiscoveryDatagram Listener::datagram(DiscoveryDatagram::Kind kind, std::uint32_t nonce) const {
    const Greeting self = hub_.greeting();
    const auto clock = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - begin_);
    return {
        self.version,
        kind,
        self.instance,
        self.id,
        port_,
        nonce,
        static_cast<std::uint64_t>(clock.count())};
}

void Listener::answer(const Discovery::Arrival& query) {
    if (query.datagram.kind != DiscoveryDatagram::Kind::Query) {
        return; // another server's
    }
    if (!query.toGroup || !discovery_.isInReach(query)) { // not a valid search
        discovery_.countIgnored();
        return;
    }
    // Clients with another version are answered too, so that they can report the mismatch.
    Discovery::answer(query, datagram(DiscoveryDatagram::Kind::Answer, query.datagram.nonce));
}

void Listener::measure(
    const std::shared_ptr<Connection>& client, const Communicator::ClockOffer& offer,
    std::function<void(std::uint32_t number)> ask) {
    if (client->probe() == nullptr) {
        measured_.push_back(client);
    }
    client->setProbe(std::make_unique<ClockProbe>(offer.nonce, offer.port, std::move(ask)));
    hub_.context()->nudge();
}

/// Asks the clients whose turn it is. Returns when the next is due.
Listener::Clock::time_point Listener::askForClocks(Clock::time_point now) {
    auto next = Clock::time_point::max();
    std::erase_if(measured_, [&](const std::weak_ptr<Connection>& held) {
        const auto client = held.lock();
        if (client == nullptr || client->isEnded()) {
            return true;
        }
        ClockProbe& probe = *client->probe();
        if (now >= probe.next()) {
            Discovery::Link* link =
                probe.byDatagram() ? discovery_.linkAt(client->socket().own().address) : nullptr;
            const std::uint32_t number = probe.begin(link != nullptr);
            if (link == nullptr) {
                probe.askOverConnection(number);
            } else {
                const ClockDatagram question{
                    hub_.greeting().version, ClockDatagram::Kind::Question, number, 0, 0};
                Discovery::send(
                    *link, question.encode(probe.nonce()), {client->peerAddress(), probe.port()});
            }
        }
        next = std::min(next, probe.next());
        return false;
    });
    return next;
}

void Listener::takeClock(const Discovery::ClockArrival& arrival) {
    for (const std::weak_ptr<Connection>& held : measured_) {
        const auto client = held.lock();
        if (client == nullptr || client->peerAddress() != arrival.sender.address ||
            arrival.datagram.kind != ClockDatagram::Kind::Answer ||
            !ClockDatagram::isFrom(arrival.bytes, client->probe()->nonce())) {
            continue;
        }
        const ClockDatagram& answer = arrival.datagram;
        if (client->probe()->answer(
                answer.number, answer.received, answer.sent, arrival.when, false)) {
            client->publishClock();
        }
        return;
    }
    discovery_.countIgnored();
}

void Listener::stop() {
    announce_ = false;
    acceptAgain_ = refreshAgain_ = Clock::time_point::max();
    watch_ = {};
    socket_.close();
    discovery_.stop();
}

} // namespace Corvid::detail
