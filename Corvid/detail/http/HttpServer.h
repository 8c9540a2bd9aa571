#pragma once

#include <Corvid/Loop.h>
#include <Corvid/Socket.h>
#include <Corvid/detail/http/HttpSession.h>
#include <Corvid/detail/http/WebSite.h>

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <vector>

namespace Corvid::detail {

/// The sockets of a web server. As a client of a loop it only records which of them are ready;
/// pages are made inside serve(). Confined to the loop thread.
class HttpServer : private Loop::Client {
public:
    explicit HttpServer(WebSite& site);
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;
    ~HttpServer() override;

    /// See WebServer::open().
    void open(const std::string& host, std::uint16_t port);
    void close();
    [[nodiscard]] bool isOpen() const { return static_cast<bool>(listener_); }
    [[nodiscard]] std::uint16_t port() const { return port_; }

    /// Null if it was neither given nor needed yet.
    [[nodiscard]] const std::shared_ptr<Loop>& loop() const { return loop_; }
    void setLoop(std::shared_ptr<Loop> loop);

    bool serve();
    /// When serve() is due; Loop::kNow if a socket is ready.
    [[nodiscard]] Loop::Clock::time_point nextServe() const;

    [[nodiscard]] std::size_t connections() const { return connections_.size(); }
    [[nodiscard]] std::size_t bytesWaiting() const;

private:
    using Clock = Loop::Clock;

    /// The readiness of a socket since the last serve().
    struct Readiness {
        bool toRead = false;
        bool broken = false;
    };
    struct Connection {
        Connection(Socket taken, WebSite& site, const WebClient& client, Clock::time_point now)
            : socket(std::move(taken)), session(site, client, now) {}

        Socket socket;
        HttpSession session;
        Loop::Watch watch;
        Readiness ready;
        bool saidEnd = false;
        bool blocked = false; // the system's socket is full
    };

    Clock::time_point prepare(Clock::time_point now, bool waits) override;
    void watchListener();
    void watch(Connection& connection);
    void serveOnce();
    void acceptClients(Clock::time_point now);
    void makeRoom();
    void receive(Connection& connection, Clock::time_point now);
    void attend(Connection& connection, int& steps, Clock::time_point now);
    void flush(Connection& connection, Clock::time_point now) const;
    static void want(Connection& connection);

    WebSite& site_;
    std::shared_ptr<Loop> loop_;
    Socket listener_;
    Loop::Watch listenerWatch_;
    std::uint16_t port_ = 0;
    std::list<Connection> connections_; // recently served ones are at the end
    std::vector<std::byte> input_;
    bool clientsWait_ = false;                                 // to be accepted
    bool isReady_ = false;                                     // since the last serve()
    Clock::time_point acceptAgain_ = Clock::time_point::max(); // while nothing can be accepted
    bool serving_ = false;
    bool closing_ = false; // requested by a page
};

} // namespace Corvid::detail
