#include <Corvid/detail/http/HttpServer.h>

#include <Corvid/IOException.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <new>
#include <sys/socket.h>
#include <sys/uio.h>
#include <system_error>
#include <utility>

namespace Corvid::detail {

namespace {

using namespace std::chrono_literals;

// Limits of one call of serve(), so that it stays short.
constexpr int kMaxAccepted = 16;
constexpr int kMaxSteps = 8;                     // requests answered and pieces made
constexpr std::size_t kMaxReceived = 64U << 10U; // from one client
constexpr std::size_t kMaxSent = 256U << 10U;    // to one client
constexpr int kBacklog = 128;
constexpr auto kFullPause = 100ms;

[[noreturn]] void
fail(const std::string& host, std::uint16_t port, const std::string& what, std::string why) {
    throw IOException(
        "cannot " + what + ' ' + (host.empty() ? "the loopback interface" : '"' + host + '"') +
        ", port " + std::to_string(port) + ": " + std::move(why));
}

InetAddress lookUp(const std::string& host, std::uint16_t port) {
    addrinfo hints = {};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (const int error = ::getaddrinfo(host.c_str(), nullptr, &hints, &found); error != 0) {
        fail(host, port, "look up", ::gai_strerror(error));
    }
    const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> owner(found, &::freeaddrinfo);
    return InetAddress::fromBits(
        ntohl(reinterpret_cast<const sockaddr_in*>(found->ai_addr)->sin_addr.s_addr));
}

} // namespace

HttpServer::HttpServer(WebSite& site) : site_(site), input_(kMaxReceived) {}

HttpServer::~HttpServer() {
    if (loop_) {
        loop_->remove(*this);
    }
}

void HttpServer::open(const std::string& host, std::uint16_t port) {
    close();
    if (!loop_) {
        try {
            setLoop(std::make_shared<Loop>());
        } catch (const std::system_error& error) {
            fail(host, port, "make a socket for", error.code().message());
        }
    }
    Socket listener;
    if (const std::error_code error = listener.open(Socket::Type::Stream)) {
        fail(host, port, "make a socket for", error.message());
    }
    Socket::Endpoint own{InetAddress(), port};
    if (!host.empty()) {
        own.address = lookUp(host, port);
    } else {
        // A local client may use any address of this machine: its packets come through the loopback
        // device, and no others do.
        constexpr char kLoopback[] = "lo";
        if (!listener.set(SOL_SOCKET, SO_BINDTODEVICE, kLoopback, sizeof kLoopback)) {
            own.address = InetAddress::fromBits(INADDR_LOOPBACK);
        }
    }
    listener.set(SOL_SOCKET, SO_REUSEADDR, 1);
    std::error_code error = listener.bind(own);
    if (!error) {
        error = listener.listen(kBacklog);
    }
    if (error) {
        fail(host, port, "listen on", error.message());
    }
    listener_ = std::move(listener);
    port_ = listener_.own().port;
    watchListener();
}

void HttpServer::close() {
    if (serving_) {
        closing_ = true;
        return;
    }
    connections_.clear();
    listenerWatch_ = {};
    listener_ = Socket();
    port_ = 0;
    acceptAgain_ = Clock::time_point::max();
    isReady_ = clientsWait_ = false;
}

void HttpServer::setLoop(std::shared_ptr<Loop> loop) {
    if (loop_) {
        loop_->remove(*this);
    }
    loop_ = std::move(loop);
    loop_->add(*this);
    if (isOpen()) {
        watchListener();
        for (Connection& connection : connections_) {
            watch(connection);
        }
    }
}

void HttpServer::watchListener() {
    listenerWatch_ = Loop::Watch(loop_, listener_, [this](auto) {
        if (std::exchange(clientsWait_, true)) { // already known
            listenerWatch_.want(false, false);
        }
        isReady_ = true;
    });
    listenerWatch_.want(true, false);
}

void HttpServer::watch(Connection& connection) {
    connection.watch =
        Loop::Watch(loop_, connection.socket, [this, &connection](const Loop::Watch::Ready& ready) {
            if (connection.ready.toRead && ready.toRead) { // already known
                connection.watch.wantRead(false);
            }
            connection.ready.toRead = connection.ready.toRead || ready.toRead;
            connection.ready.broken = ready.broken;
            if (ready.toWrite && !std::exchange(connection.blocked, false)) {
                connection.watch.wantWrite(false);
            }
            isReady_ = true;
        });
    want(connection);
}

void HttpServer::want(Connection& connection) {
    connection.watch.want(connection.session.wantsInput(), connection.blocked);
}

std::size_t HttpServer::bytesWaiting() const {
    std::size_t sum = 0;
    for (const Connection& connection : connections_) {
        sum += connection.session.outputBytes();
    }
    return sum;
}

bool HttpServer::serve() {
    if (!isOpen() || serving_) {
        return false;
    }
    serving_ = true;
    try {
        loop_->poll();
        serveOnce();
    } catch (const std::bad_alloc&) { // give up connections to free memory
        connections_.clear();
    }
    serving_ = false;
    if (std::exchange(closing_, false)) {
        close();
    }
    return true;
}

Loop::Clock::time_point HttpServer::nextServe() const {
    if (isReady_) {
        return Loop::kNow;
    }
    Clock::time_point next = acceptAgain_;
    for (const Connection& connection : connections_) {
        if (connection.session.wantsStep()) {
            return Loop::kNow;
        }
        next = std::min(next, connection.session.deadline());
    }
    return next;
}

Loop::Clock::time_point HttpServer::prepare(Clock::time_point now, bool /*waits*/) {
    const Clock::time_point next = nextServe();
    return next <= now ? Loop::kNow : next; // due work is for serve()
}

void HttpServer::serveOnce() {
    if (!isReady_ && connections_.empty() && acceptAgain_ == Clock::time_point::max()) {
        return;
    }
    isReady_ = false;
    const Clock::time_point now = Clock::now();
    if (std::exchange(clientsWait_, false)) {
        listenerWatch_.want(true, false);
        acceptClients(now);
    }
    int steps = kMaxSteps;
    auto connection = connections_.begin();
    for (std::size_t left = connections_.size(); left > 0; --left) {
        const auto next = std::next(connection);
        const int before = steps;
        attend(*connection, steps, now);
        if (connection->session.state() == HttpSession::State::Closed) {
            connections_.erase(connection);
        } else if (steps != before) {
            connections_.splice(connections_.end(), connections_, connection);
        }
        connection = next;
    }
    if (now >= acceptAgain_) {
        acceptAgain_ = Clock::time_point::max();
        listenerWatch_.want(true, false);
    }
}

void HttpServer::acceptClients(Clock::time_point now) {
    for (int i = 0; i < kMaxAccepted; ++i) {
        Socket socket;
        if (const std::error_code error = listener_.accept(socket)) {
            if (error == std::errc::connection_aborted || error == std::errc::interrupted) {
                continue;
            }
            if (error != std::errc::operation_would_block) {
                // No descriptor or memory is left. Trying again in every call would not help.
                listenerWatch_.want(false, false);
                acceptAgain_ = now + kFullPause;
            }
            return;
        }
        ++site_.counters.connectionsAccepted;
        makeRoom();
        socket.set(IPPROTO_TCP, TCP_NODELAY, 1);
        const Socket::Endpoint peer = socket.peer();
        Connection& connection = connections_.emplace_back(
            std::move(socket), site_, WebClient(peer.address, peer.port), now);
        watch(connection);
        connection.ready.toRead = true; // its next input has often arrived already
    }
}

void HttpServer::makeRoom() {
    // Connections that wait for the client come first, then the longest wait.
    const auto importance = [](const Connection& connection) {
        return std::make_pair(
            connection.session.state() == HttpSession::State::Replying,
            connection.session.deadline());
    };
    std::size_t open = 0;
    Connection* least = nullptr;
    for (Connection& connection : connections_) {
        if (connection.session.state() != HttpSession::State::Closed) {
            ++open;
            if (least == nullptr || importance(connection) < importance(*least)) {
                least = &connection;
            }
        }
    }
    if (least != nullptr && open >= site_.limits.connections) {
        least->session.drop();
    }
}

void HttpServer::receive(Connection& connection, Clock::time_point now) {
    const Readiness ready = std::exchange(connection.ready, {});
    if (ready.broken) {
        connection.session.close(); // nothing can be sent any more
    }
    if (!ready.toRead || !connection.session.wantsInput()) {
        return;
    }
    const Socket::Transfer got = connection.socket.receive(input_);
    if (got.bytes > 0) {
        connection.session.receive({reinterpret_cast<const char*>(input_.data()), got.bytes}, now);
    } else if (!got.error) {
        connection.session.endInput();
    } else if (!got.blocked()) {
        connection.session.close();
    }
}

void HttpServer::attend(Connection& connection, int& steps, Clock::time_point now) {
    HttpSession& session = connection.session;
    receive(connection, now);
    if (session.state() != HttpSession::State::Closed && now >= session.deadline()) {
        session.expire(now);
    }
    if (session.wantsStep() && steps > 0) {
        --steps;
        session.step(now);
    }
    if (!connection.blocked) {
        flush(connection, now);
    }
    if (session.state() == HttpSession::State::Lingering &&
        !std::exchange(connection.saidEnd, true)) {
        connection.socket.endSending();
    }
    if (session.state() != HttpSession::State::Closed) {
        want(connection);
    }
}

void HttpServer::flush(Connection& connection, Clock::time_point now) const {
    HttpSession& session = connection.session;
    std::size_t left = kMaxSent;
    while (!session.output().empty() && session.state() != HttpSession::State::Closed) {
        if (left == 0) { // the rest is for the next call
            connection.blocked = true;
            return;
        }
        std::array<iovec, 8> parts = {};
        std::size_t count = 0;
        std::size_t offset = session.outputOffset();
        std::size_t most = left;
        for (const std::string& bytes : session.output()) {
            if (count == parts.size() || most == 0) {
                break;
            }
            const std::size_t size = std::min(bytes.size() - offset, most);
            parts[count++] = {const_cast<char*>(bytes.data()) + offset, size};
            most -= size;
            offset = 0;
        }
        const Socket::Transfer sent = connection.socket.send(parts.data(), count);
        if (sent.error) {
            if (sent.blocked()) {
                connection.blocked = true;
            } else {
                session.close();
            }
            return;
        }
        session.sent(sent.bytes, now);
        left -= sent.bytes;
    }
}

} // namespace Corvid::detail
