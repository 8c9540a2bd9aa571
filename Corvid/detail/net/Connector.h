#pragma once

#include <Corvid/MultiClient.h>
#include <Corvid/Multicast.h>
#include <Corvid/detail/net/Discovery.h>
#include <Corvid/detail/net/Hub.h>

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace Corvid::detail {

/// Searches for servers and connects to them. Confined to the loop thread but for what says
/// otherwise.
class Connector : public Hub::Role {
public:
    Connector(Hub& hub, const Multicast& multicast);

    // Synchronised.
    void setSearchInterval(double seconds);
    void setMaxFound(std::size_t count) { maxFound_ = count; }
    void setConnecting(bool connecting) { connecting_ = connecting; }
    void setServerIds(std::vector<short> ids);
    void want(const std::string& host, std::uint16_t port, bool wanted);
    [[nodiscard]] std::vector<MultiClient::FoundServer> foundServers() const;
    [[nodiscard]] std::vector<MultiClient::SearchedInterface> searchedInterfaces() const;
    [[nodiscard]] std::uint64_t datagramsIgnored() const override { return discovery_.ignored(); }

    void turn() override;
    bool accept(Connection& connection) override;
    void lost(Connection& connection) override;
    void stop() override;

private:
    using Clock = std::chrono::steady_clock;
    using Endpoint = boost::asio::ip::tcp::endpoint;

    /// A host that is being looked up, on a thread that may outlive all of this.
    struct LookUp {
        std::mutex mutex;
        bool done = false; // guarded by mutex, and so are the next two
        std::optional<Endpoint> endpoint;
        std::string error;
    };
    /// A server that was found.
    struct Found {
        MultiClient::FoundServer server;
        std::vector<Endpoint> endpoints; ///< to be tried one after the other
        std::size_t tried = 0;           ///< of those, since the last search
        bool busy = false;               ///< an attempt or a greeting is under way
        Clock::time_point heard;
    };
    /// A server that was asked for.
    struct Named {
        std::string host;
        std::uint16_t port = 0;
        std::uint64_t instance = 0; ///< once it has greeted
        bool busy = false;
        std::string lastError;
        std::shared_ptr<LookUp> lookUp;
    };
    /// A socket that is connecting.
    struct Attempt {
        explicit Attempt(boost::asio::io_context& io) : socket(io), deadline(io) {}
        boost::asio::ip::tcp::socket socket;
        boost::asio::steady_timer deadline;
        bool timedOut = false;
    };

    void search();
    void waitToSearch();
    void heard(const Discovery::Arrival& arrival);
    bool makeRoom(const InetAddress& address);
    [[nodiscard]] bool isAskedFor(const Discovery::Arrival& arrival) const;
    void tryNext(std::uint64_t instance);
    [[nodiscard]] bool isWanted(short id) const;
    void tryNamed(const std::string& target);
    void lookUp(Named& named);
    void takeLookUps();
    void connect(const Endpoint& endpoint, const std::string& target);
    void failed(const std::string& target, const std::string& reason);
    void takeWanted();
    void publish();

    Hub& hub_;
    boost::asio::steady_timer searchTimer_;
    Discovery discovery_;
    std::map<std::uint64_t, Connection*> connected_;
    std::map<std::uint64_t, Found> found_;
    std::map<std::string, Named> named_; // by "host:port"
    std::set<std::shared_ptr<Attempt>> attempts_;
    std::set<std::uint64_t> otherVersions_; // told already
    std::set<std::uint64_t> closed_;        // instances that do not admit this machine's address
    std::uint32_t nonce_ = 0;
    std::uint32_t lastNonce_ = 0;
    Clock::time_point searched_;
    double usedInterval_ = 0.0;
    bool stopped_ = false;

    std::atomic<double> interval_ = MultiClient::kDefaultSearchInterval;
    std::atomic<std::size_t> maxFound_ = MultiClient::kMaxFoundServers;
    std::atomic<bool> connecting_ = true;
    std::atomic<bool> wantedChanged_ = false;
    mutable std::mutex mutex_; // guards the rest
    std::set<std::pair<std::string, std::uint16_t>> wanted_;
    std::vector<short> serverIds_; // empty: all
    std::vector<MultiClient::FoundServer> publishedServers_;
    std::vector<MultiClient::SearchedInterface> publishedInterfaces_;
};

} // namespace Corvid::detail
