#pragma once

#include <Show/detail/Report.h>
#include <Show/osc/OscInbox.h>
#include <Show/osc/OscScene.h>
#include <Show/osc/OscStream.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <list>
#include <string>
#include <vector>

namespace Show {

/// Takes Open Sound Control over UDP and TCP at one port and applies it to a world. It has no
/// thread: everything happens inside wait() and serve(). Messages that make no sense are counted;
/// the first of them are reported. The world must outlive it. Confined to the world's thread.
class OscServer {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::size_t kMostConnections = 64;
    static constexpr std::size_t kMaxReports = 20;

    struct Settings {
        std::string address = "127.0.0.1"; ///< IPv4, of the interface; 0.0.0.0 for all
        unsigned short port = 0;           ///< 0: the system chooses
        float scale = 10.0F;               ///< scene units for the 1 of normalised coordinates
    };

    OscServer(Orvel::World& world, const Settings& settings, OscScene::Apply apply, Report report);
    OscServer(const OscServer&) = delete;
    OscServer& operator=(const OscServer&) = delete;
    ~OscServer();

    /// Opens both sockets. False, with a report, if that is impossible.
    bool open();
    [[nodiscard]] unsigned short port() const noexcept { return port_; }

    /// Readable (poll, epoll) while something has arrived; -1 before open().
    [[nodiscard]] int descriptor() const noexcept { return poller_; }
    /// When serve() is due although descriptor() is not readable; time_point::max() if no message
    /// waits for its time.
    [[nodiscard]] Clock::time_point next() const;
    /// Waits until something arrives, a message that waits is due, or it is `until`.
    void wait(Clock::time_point until) const;
    /// Applies what has arrived and what is due, for about `atMost`, however much there is.
    void serve(Clock::duration atMost);

    /// Applies what has arrived until now, and reports the summary, if there is one.
    void finish();
    /// In one sentence, how many messages came and how many were wrong; empty if none came.
    [[nodiscard]] std::string summary() const;

private:
    struct Connection {
        int socket = -1;
        std::string peer;
        OscStream stream;
        Clock::time_point heard = Clock::now();
        bool behind = false; ///< whole packets may be left in the stream
    };

    bool listen(unsigned short port);
    [[nodiscard]] bool addToPoller(int socket) const;
    void accept();
    /// False when the connection has ended. Sets `more` if something has come.
    bool read(Connection& connection, const OscInbox::Stop& stop, bool& more);
    void readDatagrams(const OscInbox::Stop& stop);
    [[nodiscard]] bool isAnyBehind() const;
    void take(std::span<const std::byte> packet);
    void reportWrong(const std::string& fault);

    Settings settings_;
    Report report_;
    OscScene scene_;
    OscInbox inbox_;
    int poller_ = -1; // of the sockets below
    int udp_ = -1;
    int tcp_ = -1;
    unsigned short port_ = 0;
    std::list<Connection> connections_;
    std::vector<std::byte> buffer_;
    std::uint64_t messages_ = 0;
    std::uint64_t wrong_ = 0;
};

} // namespace Show
