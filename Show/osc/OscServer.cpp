#include <Show/osc/OscServer.h>

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace Show {

namespace {

constexpr int kDatagramBytes = 4 << 20; // that the system keeps while we are busy
constexpr int kDatagramsInARow = 256;   // before connections get their turn
constexpr std::chrono::milliseconds kLongestFinish{100};
constexpr int kAttempts = 20;    // to find a port that is free for both
constexpr int kIdleSeconds = 30; // before a silent peer is asked whether it is there
constexpr int kLinger = 16;      // connections that wait to be accepted

std::string nameOf(const sockaddr_in& address) {
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
    return std::string(text) + ":" + std::to_string(ntohs(address.sin_port));
}

} // namespace

OscServer::OscServer(
    Orvel::World& world, const Settings& settings, OscScene::Apply apply, Report report)
    : settings_(settings), report_(std::move(report)),
      scene_(world, settings.scale, std::move(apply)),
      inbox_(
          [this](std::span<const std::byte> message) { take(message); },
          [this](const std::string& fault) { reportWrong(fault); }),
      buffer_(OscStream::kMostBytes) {}

OscServer::~OscServer() {
    for (const int socket : {poller_, udp_, tcp_}) {
        if (socket >= 0) {
            close(socket);
        }
    }
    for (const Connection& connection : connections_) {
        close(connection.socket);
    }
}

bool OscServer::open() {
    for (int attempt = 0; attempt < (settings_.port == 0 ? kAttempts : 1); ++attempt) {
        if (listen(settings_.port)) {
            return true;
        }
        if (settings_.port != 0 || errno != EADDRINUSE) {
            break;
        }
    }
    report_(
        "cannot take Open Sound Control at " + settings_.address + ":" +
        std::to_string(settings_.port) + ": " + std::generic_category().message(errno) +
        "; choose another --osc");
    return false;
}

bool OscServer::listen(unsigned short port) {
    for (int* old : {&poller_, &udp_, &tcp_}) {
        if (*old >= 0) {
            close(std::exchange(*old, -1));
        }
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    inet_pton(AF_INET, settings_.address.c_str(), &address.sin_addr);
    socklen_t size = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    const int on = 1;
    tcp_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    udp_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    poller_ = epoll_create1(EPOLL_CLOEXEC);
    if (tcp_ < 0 || udp_ < 0 || setsockopt(tcp_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        bind(tcp_, generic, size) != 0 || ::listen(tcp_, kLinger) != 0 ||
        getsockname(tcp_, generic, &size) != 0 || bind(udp_, generic, size) != 0 ||
        !addToPoller(tcp_) || !addToPoller(udp_)) {
        return false;
    }
    // Less will do where the system gives no more.
    setsockopt(udp_, SOL_SOCKET, SO_RCVBUF, &kDatagramBytes, sizeof kDatagramBytes);
    port_ = ntohs(address.sin_port);
    return true;
}

bool OscServer::addToPoller(int socket) const {
    epoll_event event{};
    event.events = EPOLLIN;
    return epoll_ctl(poller_, EPOLL_CTL_ADD, socket, &event) == 0;
}

OscServer::Clock::time_point OscServer::next() const {
    if (isAnyBehind()) {
        return Clock::time_point::min();
    }
    const auto due = inbox_.next();
    return due ? Clock::now() +
                     std::chrono::duration_cast<Clock::duration>(*due - OscInbox::Clock::now())
               : Clock::time_point::max();
}

bool OscServer::isAnyBehind() const {
    return std::any_of(connections_.begin(), connections_.end(), [](const Connection& connection) {
        return connection.behind;
    });
}

void OscServer::wait(Clock::time_point until) const {
    const auto left = std::max(
        std::chrono::duration_cast<std::chrono::nanoseconds>(
            std::min(until, next()) - Clock::now()),
        std::chrono::nanoseconds(0));
    const timespec time{left.count() / 1'000'000'000, left.count() % 1'000'000'000};
    pollfd entry{poller_, POLLIN, 0};
    ppoll(&entry, 1, &time, nullptr); // a signal ends it
}

void OscServer::serve(Clock::duration atMost) {
    const auto end = Clock::now() + atMost;
    const auto stop = [end] { return Clock::now() >= end; };
    accept();
    // What is due comes before what has arrived after it.
    if (!inbox_.advance(OscInbox::Clock::now(), stop)) {
        return;
    }
    readDatagrams(stop);
    bool more = true;
    while (more && !stop()) {
        more = false;
        for (auto entry = connections_.begin(); entry != connections_.end();) {
            if (!read(*entry, stop, more)) {
                close(entry->socket);
                entry = connections_.erase(entry);
            } else {
                ++entry;
            }
            if (stop()) { // the others come first in the next turn
                connections_.splice(connections_.end(), connections_, connections_.begin(), entry);
                break;
            }
        }
    }
}

void OscServer::accept() {
    for (;;) {
        sockaddr_in address{};
        socklen_t size = sizeof address;
        const int socket = accept4(
            tcp_, reinterpret_cast<sockaddr*>(&address), &size, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (socket < 0) {
            return;
        }
        if (connections_.size() >= kMostConnections) {
            const auto idlest = std::min_element(
                connections_.begin(), connections_.end(),
                [](const Connection& a, const Connection& b) { return a.heard < b.heard; });
            reportWrong(
                idlest->peer + " has been silent for longest of " +
                std::to_string(kMostConnections) + " connections, and gives way to " +
                nameOf(address));
            close(idlest->socket);
            connections_.erase(idlest);
        }
        // So that a peer that is gone without a word does not keep its place.
        const int on = 1;
        setsockopt(socket, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
        setsockopt(socket, IPPROTO_TCP, TCP_KEEPIDLE, &kIdleSeconds, sizeof kIdleSeconds);
        if (!addToPoller(socket)) {
            close(socket);
            continue;
        }
        Connection& connection = connections_.emplace_back();
        connection.socket = socket;
        connection.peer = nameOf(address);
    }
}

bool OscServer::read(Connection& connection, const OscInbox::Stop& stop, bool& more) {
    const auto takeWhole = [&] {
        const auto now = OscInbox::Clock::now();
        connection.behind = false;
        for (std::span<const std::byte> packet; connection.stream.next(packet);) {
            inbox_.add(packet, now, stop);
            if (stop()) {
                connection.behind = true; // there may be more
                return;
            }
        }
    };
    if (stop()) {
        return true;
    }
    takeWhole();
    if (!connection.behind) {
        const ssize_t got = recv(connection.socket, buffer_.data(), buffer_.size(), 0);
        if (got <= 0) {
            return got < 0 && (errno == EAGAIN || errno == EINTR);
        }
        more = true;
        connection.heard = Clock::now();
        connection.stream.feed({buffer_.data(), static_cast<std::size_t>(got)});
        takeWhole();
    }
    if (connection.stream.broken()) {
        reportWrong(
            connection.peer + " sends no packets of at most 64 KiB; its connection is closed");
    }
    return !connection.stream.broken();
}

void OscServer::readDatagrams(const OscInbox::Stop& stop) {
    do {
        for (int i = 0; i < kDatagramsInARow && !stop(); ++i) {
            const ssize_t got = recv(udp_, buffer_.data(), buffer_.size(), 0);
            if (got < 0) {
                return;
            }
            inbox_.add(
                {buffer_.data(), static_cast<std::size_t>(got)}, OscInbox::Clock::now(), stop);
        }
    } while (connections_.empty() && !stop());
}

void OscServer::take(std::span<const std::byte> packet) {
    ++messages_;
    if (const std::string fault = scene_.take(packet); !fault.empty()) {
        reportWrong(fault);
    }
}

void OscServer::reportWrong(const std::string& fault) {
    ++wrong_;
    if (wrong_ <= kMaxReports) {
        report_("OSC: " + fault);
    }
    if (wrong_ == kMaxReports) {
        report_("OSC: from now on such messages are only counted");
    }
}

void OscServer::finish() {
    serve(kLongestFinish);
    if (const std::string text = summary(); !text.empty()) {
        report_(text);
    }
}

std::string OscServer::summary() const {
    if (messages_ == 0 && wrong_ == 0) {
        return {};
    }
    return "OSC: " + std::to_string(messages_) + " messages, " + std::to_string(wrong_) + " wrong";
}

} // namespace Show
