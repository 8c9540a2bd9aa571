#pragma once

#include <Corvid/Loop.h>
#include <Corvid/Socket.h>
#include <Show/detail/Report.h>
#include <Show/osc/OscFeedback.h>
#include <Show/osc/OscInbox.h>
#include <Show/osc/OscPeer.h>
#include <Show/osc/OscQuery.h>
#include <Show/osc/OscScene.h>
#include <Show/osc/OscStream.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace Show {

/// Takes Open Sound Control over UDP and TCP at one port and applies it to a world, inside serve().
/// Its loop waits for it. Queries are answered to their senders, and subscribers receive what
/// changes. Invalid messages are counted; the first of them are reported, each once per sender. The
/// world must outlive it. Confined to the world's thread, which is the loop's.
class OscServer : private Corvid::Loop::Client {
public:
    using Clock = Corvid::Loop::Clock;

    static constexpr std::size_t kMaxConnections = 64;
    static constexpr std::size_t kMaxReports = 20;
    /// Limit of the bytes that a connection has not taken yet.
    static constexpr std::size_t kMaxUnsent = std::size_t{1} << 20U;

    struct Settings {
        std::string address = "127.0.0.1"; ///< IPv4, of the interface; 0.0.0.0 for all
        unsigned short port = 0;           ///< 0: the system chooses
        float scale = 10.0F;               ///< scene units per normalised unit
        /// Queries over UDP are answered to this port of the sender's address as well, unless 0.
        unsigned short replyPort = 0;
        AdmPaths::Change change; ///< may be empty
        /// Where the paths are described over HTTP; 0: the system chooses, nothing: nowhere.
        std::optional<unsigned short> queryPort{};
        /// Receivers of what changes, over UDP.
        std::vector<Corvid::Socket::Endpoint> feedback{};
    };

    OscServer(
        Orvel::World& world, const Settings& settings, OscEdits::Apply apply, Report report,
        std::shared_ptr<Corvid::Loop> loop);
    OscServer(const OscServer&) = delete;
    OscServer& operator=(const OscServer&) = delete;
    ~OscServer() override;

    /// Opens both sockets. On failure reports it and returns false.
    bool open();
    [[nodiscard]] unsigned short port() const noexcept { return port_; }
    /// 0: none.
    [[nodiscard]] unsigned short queryPort() const {
        return query_ == nullptr ? 0 : query_->port();
    }

    /// The playback that messages control; null: none. It is not kept alive.
    void control(const std::shared_ptr<Transport>& playback) { scene_.control(playback); }

    /// Applies received and due messages, for about `atMost`.
    void serve(Clock::duration atMost);

    /// Applies everything received so far, and reports the summary if there is one.
    void finish();
    /// The number of messages and of invalid ones as a sentence; empty if there were none.
    [[nodiscard]] std::string summary() const;

private:
    struct Connection {
        Corvid::Socket socket;
        Corvid::Loop::Watch watch;
        OscPeer peer;
        OscStream stream;
        std::string out; ///< bytes to send
        Clock::time_point heard = Clock::now();
        bool behind = false; ///< complete packets may be left in the stream
    };

    Clock::time_point prepare(Clock::time_point now, bool waits) override;
    bool openQuery();
    [[nodiscard]] std::error_code listen(unsigned short port);
    [[nodiscard]] Corvid::Loop::Watch watch(const Corvid::Socket& socket);
    void accept();
    /// Returns false if the connection has ended. Sets `more` if data was read.
    bool read(Connection& connection, const OscInbox::Stop& stop, bool& more);
    void receive(const OscInbox::Stop& stop);
    void readDatagrams(const OscInbox::Stop& stop);
    void take(std::span<const std::byte> message, const OscPeer& sender);
    /// Sends messages; the latest of them are lost if the receiver is too slow.
    void send(const OscPeer& receiver, std::span<const OscAnswer> answers);
    /// Sends the bytes that were left. Returns false if the connection has ended.
    static bool flush(Connection& connection);
    void reportWrong(const std::string& fault, const OscPeer& sender);

    Settings settings_;
    Report report_;
    OscScene scene_;
    OscFeedback feedback_;
    OscInbox inbox_;
    std::unique_ptr<OscQuery> query_; // if there is one
    OscPeer sender_;                  // of the message being applied
    const std::shared_ptr<Corvid::Loop> loop_;
    Corvid::Socket udp_;
    Corvid::Socket tcp_;
    Corvid::Loop::Watch udpWatch_;
    Corvid::Loop::Watch tcpWatch_;
    unsigned short port_ = 0;
    Clock::time_point acceptAgain_ = Clock::time_point::max(); // while nothing can be accepted
    bool arrived_ = false;                                     // something, since the last serve()
    std::list<Connection> connections_;
    std::vector<std::byte> buffer_;
    std::uint64_t connected_ = 0;                              // connections so far
    std::set<std::pair<std::uint32_t, std::string>> reported_; // faults, by the sender's address
    std::uint64_t messages_ = 0;
    std::uint64_t wrong_ = 0;
};

} // namespace Show
