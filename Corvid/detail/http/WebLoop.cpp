#include <Corvid/detail/http/WebLoop.h>

#include <Corvid/IOException.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <iterator>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <new>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <system_error>
#include <utility>

namespace Corvid::detail {

namespace {

using namespace std::chrono_literals;

// Limits of one call of serve(), so that it stays short.
constexpr int kMostEvents = 32; // per call; the kernel continues with the others
constexpr int kMaxClientsAccepted = 16;
constexpr int kMostTurns = 8;                     // requests and pieces
constexpr std::size_t kMostReceived = 64U << 10U; // from one client
constexpr std::size_t kMostSent = 256U << 10U;    // to one client
constexpr int kWebBacklog = 128;
constexpr auto kWebFullPause = 100ms;

[[noreturn]] void
fail(const std::string& host, std::uint16_t port, const std::string& what, std::string why) {
    throw IOException(
        "cannot " + what + ' ' + (host.empty() ? "the loopback interface" : '"' + host + '"') +
        ", port " + std::to_string(port) + ": " + std::move(why));
}

std::string lastError() {
    return std::generic_category().message(errno);
}

in_addr_t lookUp(const std::string& host, std::uint16_t port) {
    addrinfo hints = {};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (const int error = ::getaddrinfo(host.c_str(), nullptr, &hints, &found); error != 0) {
        fail(host, port, "look up", ::gai_strerror(error));
    }
    const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> owner(found, &::freeaddrinfo);
    return reinterpret_cast<const sockaddr_in*>(found->ai_addr)->sin_addr.s_addr;
}

} // namespace

WebLoop::WebLoop(WebSite& site) : site_(site), input_(kMostReceived) {}

WebLoop::~WebLoop() = default;

void WebLoop::open(const std::string& host, std::uint16_t port) {
    close();
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    Descriptor listener(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    Descriptor poller(::epoll_create1(EPOLL_CLOEXEC));
    if (!listener || !poller) {
        fail(host, port, "make a socket for", lastError());
    }
    if (!host.empty()) {
        address.sin_addr.s_addr = lookUp(host, port);
    } else {
        // Packets of a local client come through the loopback device, whatever address it uses, and
        // no others do.
        constexpr char kLoopback[] = "lo";
        const bool tied =
            ::setsockopt(
                listener.get(), SOL_SOCKET, SO_BINDTODEVICE, kLoopback, sizeof kLoopback) == 0;
        address.sin_addr.s_addr = htonl(tied ? INADDR_ANY : INADDR_LOOPBACK);
    }
    const int yes = 1;
    ::setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    socklen_t size = sizeof address;
    epoll_event event = {};
    if (::bind(listener.get(), generic, size) != 0 || ::listen(listener.get(), kWebBacklog) != 0 ||
        ::getsockname(listener.get(), generic, &size) != 0 ||
        ::epoll_ctl(poller.get(), EPOLL_CTL_ADD, listener.get(), &event) != 0) {
        fail(host, port, "listen on", lastError());
    }
    poller_ = std::move(poller);
    listener_ = std::move(listener);
    port_ = ntohs(address.sin_port);
    watchesListener_ = false;
    watchListener(true);
}

void WebLoop::close() {
    if (serving_) {
        closing_ = true;
        return;
    }
    connections_.clear();
    listener_ = Descriptor();
    poller_ = Descriptor();
    port_ = 0;
}

std::size_t WebLoop::bytesWaiting() const {
    std::size_t sum = 0;
    for (const Connection& connection : connections_) {
        sum += connection.session.outputBytes();
    }
    return sum;
}

bool WebLoop::serve() {
    if (!isOpen() || serving_) {
        return false;
    }
    serving_ = true;
    try {
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

WebLoop::Clock::time_point WebLoop::nextServe() const {
    Clock::time_point next = Clock::time_point::max();
    if (isOpen() && !watchesListener_) {
        next = acceptAgain_;
    }
    for (const Connection& connection : connections_) {
        if (connection.session.wantsTurn()) {
            return Clock::time_point::min();
        }
        next = std::min(next, connection.session.deadline());
    }
    return next;
}

void WebLoop::serveOnce() {
    std::array<epoll_event, kMostEvents> events; // written by the kernel as far as it is read
    const int count = ::epoll_wait(poller_.get(), events.data(), kMostEvents, 0);
    if (count > 0 || !connections_.empty() || !watchesListener_) {
        const Clock::time_point now = Clock::now();
        for (int i = 0; i < count; ++i) {
            const epoll_event& event = events[static_cast<std::size_t>(i)];
            auto* connection = static_cast<Connection*>(event.data.ptr);
            if (connection == nullptr) {
                acceptClients(now);
                continue;
            }
            connection->blocked = connection->blocked && (event.events & EPOLLOUT) == 0;
            if ((event.events & (EPOLLERR | EPOLLHUP)) != 0) {
                connection->session.close(); // nothing can be sent any more
            } else if ((event.events & EPOLLIN) != 0) {
                receive(*connection, now);
            }
        }
        int turns = kMostTurns;
        auto connection = connections_.begin();
        for (std::size_t left = connections_.size(); left > 0; --left) {
            const auto next = std::next(connection);
            const int before = turns;
            attend(*connection, turns, now);
            if (connection->session.state() == HttpSession::State::Closed) {
                connections_.erase(connection);
            } else if (turns != before) {
                connections_.splice(connections_.end(), connections_, connection);
            }
            connection = next;
        }
        if (!watchesListener_ && now >= acceptAgain_) {
            watchListener(true);
        }
    }
}

void WebLoop::watchListener(bool watch) {
    if (watch != watchesListener_) {
        epoll_event event = {};
        event.events = watch ? EPOLLIN : 0U;
        event.data.ptr = nullptr;
        ::epoll_ctl(poller_.get(), EPOLL_CTL_MOD, listener_.get(), &event);
        watchesListener_ = watch;
    }
}

void WebLoop::acceptClients(Clock::time_point now) {
    for (int i = 0; i < kMaxClientsAccepted; ++i) {
        sockaddr_in address = {};
        socklen_t size = sizeof address;
        Descriptor socket(::accept4(
            listener_.get(), reinterpret_cast<sockaddr*>(&address), &size,
            SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (!socket) {
            if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
                // Trying again in every call would not help.
                watchListener(false);
                acceptAgain_ = now + kWebFullPause;
            }
            if (errno == ECONNABORTED || errno == EINTR) {
                continue;
            }
            return;
        }
        ++site_.counters.connectionsAccepted;
        makeRoom();
        const int yes = 1;
        ::setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
        const WebClient client(
            InetAddress::fromBits(ntohl(address.sin_addr.s_addr)), ntohs(address.sin_port));
        Connection& connection = connections_.emplace_back(std::move(socket), site_, client, now);
        connection.interest = EPOLLIN;
        epoll_event event = {};
        event.events = connection.interest;
        event.data.ptr = &connection;
        if (::epoll_ctl(poller_.get(), EPOLL_CTL_ADD, connection.socket.get(), &event) != 0) {
            connections_.pop_back();
            return;
        }
        receive(connection, now); // its next input has often arrived already
    }
}

void WebLoop::makeRoom() {
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

void WebLoop::receive(Connection& connection, Clock::time_point now) {
    if (!connection.session.wantsInput()) {
        return;
    }
    const ssize_t size = ::recv(connection.socket.get(), input_.data(), input_.size(), 0);
    if (size > 0) {
        connection.session.receive({input_.data(), static_cast<std::size_t>(size)}, now);
    } else if (size == 0) {
        connection.session.endInput();
    } else if (errno != EAGAIN && errno != EINTR) {
        connection.session.close();
    }
}

void WebLoop::attend(Connection& connection, int& turns, Clock::time_point now) {
    HttpSession& session = connection.session;
    if (session.state() != HttpSession::State::Closed && now >= session.deadline()) {
        session.expire(now);
    }
    if (session.wantsTurn() && turns > 0) {
        --turns;
        session.turn(now);
    }
    if (!connection.blocked) {
        flush(connection, now);
    }
    if (session.state() == HttpSession::State::Lingering &&
        !std::exchange(connection.saidEnd, true)) {
        ::shutdown(connection.socket.get(), SHUT_WR);
    }
    watch(connection);
}

void WebLoop::flush(Connection& connection, Clock::time_point now) const {
    HttpSession& session = connection.session;
    std::size_t left = kMostSent;
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
        msghdr message = {};
        message.msg_iov = parts.data();
        message.msg_iovlen = count;
        const ssize_t sent = ::sendmsg(connection.socket.get(), &message, MSG_NOSIGNAL);
        if (sent < 0) {
            if (errno == EAGAIN || errno == EINTR) {
                connection.blocked = true;
            } else {
                session.close();
            }
            return;
        }
        session.sent(static_cast<std::size_t>(sent), now);
        left -= static_cast<std::size_t>(sent);
    }
}

void WebLoop::watch(Connection& connection) const {
    if (connection.session.state() == HttpSession::State::Closed) {
        return;
    }
    const std::uint32_t interest =
        (connection.session.wantsInput() ? EPOLLIN : 0U) | (connection.blocked ? EPOLLOUT : 0U);
    if (interest != connection.interest) {
        epoll_event event = {};
        event.events = connection.interest = interest;
        event.data.ptr = &connection;
        ::epoll_ctl(poller_.get(), EPOLL_CTL_MOD, connection.socket.get(), &event);
    }
}

} // namespace Corvid::detail
