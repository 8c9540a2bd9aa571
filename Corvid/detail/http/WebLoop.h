#pragma once

#include <Corvid/detail/http/HttpSession.h>
#include <Corvid/detail/http/WebSite.h>
#include <Corvid/detail/net/Descriptor.h>

#include <cstddef>
#include <cstdint>
#include <list>
#include <string>
#include <utility>
#include <vector>

namespace Corvid::detail {

/// The sockets of a web server, polled once in each call of serve(). Confined.
class WebLoop {
public:
    explicit WebLoop(WebSite& site);
    ~WebLoop();

    /// See WebServer::open().
    void open(const std::string& host, std::uint16_t port);
    void close();
    [[nodiscard]] bool isOpen() const { return static_cast<bool>(listener_); }
    [[nodiscard]] std::uint16_t port() const { return port_; }

    bool serve();
    [[nodiscard]] int descriptor() const { return poller_.get(); }
    [[nodiscard]] HttpSession::Clock::time_point nextServe() const;

    [[nodiscard]] std::size_t connections() const { return connections_.size(); }
    [[nodiscard]] std::size_t bytesWaiting() const;

private:
    using Clock = HttpSession::Clock;

    struct Connection {
        Connection(
            Descriptor descriptor, WebSite& site, const WebClient& client, Clock::time_point now)
            : socket(std::move(descriptor)), session(site, client, now) {}

        Descriptor socket;
        HttpSession session;
        std::uint32_t interest = 0; // events that the kernel reports
        bool saidEnd = false;
        bool blocked = false; // the system's socket is full
    };

    void serveOnce();
    void acceptClients(Clock::time_point now);
    void makeRoom();
    void watchListener(bool watch);
    void receive(Connection& connection, Clock::time_point now);
    void attend(Connection& connection, int& turns, Clock::time_point now);
    void flush(Connection& connection, Clock::time_point now) const;
    void watch(Connection& connection) const;

    WebSite& site_;
    Descriptor poller_;
    Descriptor listener_;
    std::uint16_t port_ = 0;
    std::list<Connection> connections_; // recently served ones are at the end
    std::vector<char> input_;
    bool watchesListener_ = false;
    Clock::time_point acceptAgain_; // while accepting is paused
    bool serving_ = false;
    bool closing_ = false; // requested by a page
};

} // namespace Corvid::detail
