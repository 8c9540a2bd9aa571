#include <Corvid/detail/net/Listener.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <utility>

namespace Corvid::detail {

namespace {

using boost::asio::ip::tcp;
using namespace std::chrono_literals;

constexpr auto kRefreshInterval = 3s; // interfaces come and go
constexpr auto kFullPause = 100ms;
constexpr int kMostAccepted = 16; // then those that came get their turn
constexpr int kBacklog = 128;

} // namespace

Listener::Listener(Hub& hub, const Multicast& multicast)
    : hub_(hub), multicast_(multicast), acceptor_(hub.loop()->io), refreshTimer_(hub.loop()->io),
      acceptTimer_(hub.loop()->io),
      discovery_(hub.loop()->io, multicast, [this](const Discovery::Arrival& arrival) {
          answer(arrival);
      }) {}

std::string Listener::listen(const std::string& host, std::uint16_t port, bool announce) {
    tcp::endpoint endpoint(tcp::v4(), port);
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
        endpoint.address(boost::asio::ip::address_v4(ntohl(address->sin_addr.s_addr)));
    }
    try {
        acceptor_.open(tcp::v4());
        acceptor_.set_option(tcp::acceptor::reuse_address(true));
        acceptor_.bind(endpoint);
        acceptor_.listen(kBacklog);
        acceptor_.non_blocking(true);
        port_ = acceptor_.local_endpoint().port();
    } catch (const boost::system::system_error& error) {
        boost::system::error_code ignored;
        acceptor_.close(ignored);
        return error.code().message();
    }
    announce_ = announce;
    waitForClients();
    if (announce_) {
        waitToRefresh();
    }
    return {};
}

void Listener::waitForClients() {
    acceptor_.async_wait(tcp::acceptor::wait_read, [this](const boost::system::error_code& error) {
        if (!error && acceptor_.is_open()) {
            acceptClients();
        }
    });
}

void Listener::acceptClients() {
    const Multicast::Settings settings = multicast_.settings();
    for (int i = 0; i < kMostAccepted; ++i) {
        boost::system::error_code error;
        tcp::socket socket(hub_.loop()->io);
        acceptor_.accept(socket, error);
        if (error == boost::asio::error::would_block) {
            break;
        }
        if (error == boost::asio::error::connection_aborted) {
            continue;
        }
        if (error) { // no descriptor or memory is left; asking again at once would not help
            if (!std::exchange(toldFull_, true)) {
                hub_.reportRefusal("cannot accept a client: " + error.message() + "; trying again");
            }
            acceptTimer_.expires_after(kFullPause);
            acceptTimer_.async_wait([this](const boost::system::error_code& cancelled) {
                if (!cancelled) {
                    waitForClients();
                }
            });
            return;
        }
        toldFull_ = false;
        if (admit(socket, settings)) {
            hub_.adopt(std::move(socket), {});
        }
    }
    waitForClients();
}

bool Listener::admit(tcp::socket& socket, const Multicast::Settings& settings) {
    boost::system::error_code error;
    const auto local = socket.local_endpoint(error);
    if (settings.restricted() &&
        (error || !mayUse(settings, InetAddress::fromBits(local.address().to_v4().to_uint())))) {
        hub_.countRefusal();
        hub_.reportRefusal("refused a client of an interface that is not to be used");
        return false;
    }
    if (!admission_) {
        return true;
    }
    const auto remote = socket.remote_endpoint(error);
    if (error) {
        return false;
    }
    const auto peer = InetAddress::fromBits(remote.address().to_v4().to_uint());
    if (admission_(peer)) {
        return true;
    }
    Greeting refusal = hub_.greeting();
    refusal.features = Greeting::kNotAdmitted;
    const auto bytes = refusal.encode();
    // A client that hears nothing finds the connection closed all the same.
    ::send(socket.native_handle(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    socket.shutdown(tcp::socket::shutdown_send, error);
    hub_.countRefusal();
    hub_.reportRefusal("refused a client at " + peer.text() + ": its address is not allowed");
    return false;
}

bool Listener::accept(Connection& connection) {
    // The peer keeps one connection, and has given up the former ones.
    hub_.replaceBy(connection);
    return true;
}

void Listener::lost(Connection& /*connection*/) {}

void Listener::turn() {
    if (announce_ && discovery_.isOutdated()) {
        refresh();
    }
}

void Listener::refresh() {
    if (discovery_.refresh()) {
        discovery_.send(datagram(DiscoveryDatagram::Kind::Announce, 0));
    }
    auto interfaces = discovery_.interfaces();
    const std::scoped_lock lock(mutex_);
    interfaces_.swap(interfaces);
}

std::vector<Multicast::UsedInterface> Listener::interfaces() const {
    const std::scoped_lock lock(mutex_);
    return interfaces_;
}

void Listener::waitToRefresh() {
    refreshTimer_.expires_after(kRefreshInterval);
    refreshTimer_.async_wait([this](const boost::system::error_code& error) {
        if (!error && announce_) {
            refresh();
            waitToRefresh();
        }
    });
}

DiscoveryDatagram Listener::datagram(DiscoveryDatagram::Kind kind, std::uint32_t nonce) const {
    const Greeting self = hub_.greeting();
    const auto clock = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now() - begin_);
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
    if (!query.toGroup || !discovery_.isInReach(query)) { // nobody searches so
        discovery_.countIgnored();
        return;
    }
    // Clients of another version are answered too, so that they can tell what is wrong.
    Discovery::answer(
        query.link, datagram(DiscoveryDatagram::Kind::Answer, query.datagram.nonce), query.address,
        query.port);
}

void Listener::stop() {
    announce_ = false;
    boost::system::error_code ignored;
    acceptor_.close(ignored);
    acceptTimer_.cancel();
    refreshTimer_.cancel();
    discovery_.stop();
}

} // namespace Corvid::detail
