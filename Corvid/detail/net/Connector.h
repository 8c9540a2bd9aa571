#pragma once

#include <Corvid/Loop.h>
#include <Corvid/MultiClient.h>
#include <Corvid/Multicast.h>
#include <Corvid/Socket.h>
#include <Corvid/detail/net/Discovery.h>
#include <Corvid/detail/net/Hub.h>
#include <Vessa/Mutex.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace Corvid::detail {

/// Searches for servers and connects to them. Confined to the loop thread unless stated otherwise.
class Connector : public Hub::Role {
public:
    using Clock = Loop::Clock;

    Connector(Hub& hub, const Multicast& multicast);

    // Synchronised.
    void setSearchInterval(double seconds);
    void setMeasuredQueries(int count);
    void setMaxFound(std::size_t count) { maxFound_ = count; }
    void setConnecting(bool connecting) { connecting_ = connecting; }
    void setServerIds(std::vector<short> ids) ORVEL_EXCLUDES(mutex_);
    void want(const std::string& host, std::uint16_t port, bool wanted) ORVEL_EXCLUDES(mutex_);
    [[nodiscard]] std::vector<MultiClient::FoundServer> foundServers() const ORVEL_EXCLUDES(mutex_);
    [[nodiscard]] std::vector<MultiClient::SearchedInterface> searchedInterfaces() const
        ORVEL_EXCLUDES(mutex_);
    [[nodiscard]] std::uint64_t datagramsIgnored() const override { return discovery_.ignored(); }

    void setKeys(const std::shared_ptr<Keyring>& ring) override;
    Clock::time_point serve(Clock::time_point now) override;
    bool accept(Connection& connection) override;
    void lost(Connection& connection) override;
    void stop() override;

private:
    /// A host name being resolved, on a thread that may outlive everything else.
    struct LookUp {
        Vessa::Mutex mutex;
        bool done ORVEL_GUARDED_BY(mutex) = false;
        std::optional<Socket::Endpoint> endpoint ORVEL_GUARDED_BY(mutex);
        std::string error ORVEL_GUARDED_BY(mutex);
    };
    /// A query that was sent to the group.
    struct Query {
        std::uint64_t number = 0; ///< from 1
        std::uint32_t nonce = 0;
        Clock::time_point sent;
    };
    /// The first answer of a server to a query.
    struct Answer {
        std::uint64_t number = 0; ///< of the query
        double seconds = 0.0;     ///< its round trip
    };
    /// A found server.
    struct Found {
        MultiClient::FoundServer server;
        std::vector<Socket::Endpoint> endpoints; ///< tried in order
        std::size_t tried = 0;                   ///< of those, since the last search
        bool busy = false;                       ///< an attempt or a greeting is under way
        Clock::time_point heard;
        std::uint64_t firstAnswered = 0; ///< number of the query; 0 before
        std::vector<Answer> answers;     ///< by round trip, the least first
    };
    /// A server of connectToServer().
    struct Named {
        std::string host;
        std::uint16_t port = 0;
        std::uint64_t instance = 0; ///< once it has greeted
        bool busy = false;
        std::string lastError;
        std::shared_ptr<LookUp> lookUp;
    };
    /// A server that may ask for the clock.
    struct Asker {
        InetAddress address;
        Clock::time_point period; ///< begin of the second that `answers` counts
        int answers = 0;
    };
    /// A socket that is connecting.
    struct Attempt {
        Socket socket;
        Loop::Watch watch;
        std::string target;
        Clock::time_point deadline;
    };

    void search(Clock::time_point now);
    void heard(const Discovery::Arrival& arrival);
    bool makeRoom(const InetAddress& address);
    [[nodiscard]] bool isAskedFor(const Discovery::Arrival& arrival) const;
    [[nodiscard]] const Query* queryOf(const DiscoveryDatagram& answer) const;
    void measure(Found& found) const;
    void tryNext(std::uint64_t instance);
    [[nodiscard]] bool isWanted(short id) const;
    void tryNamed(const std::string& target);
    void lookUp(Named& named);
    void takeLookUps();
    void connect(const Socket::Endpoint& endpoint, const std::string& target);
    void finish(std::list<Attempt>::iterator attempt, const std::string& error);
    Clock::time_point endLateAttempts(Clock::time_point now);
    void failed(const std::string& target, const std::string& reason);
    void takeWanted();
    void publish() ORVEL_EXCLUDES(mutex_);
    void offerClock(Connection& connection);
    void answerClock(const Discovery::ClockArrival& arrival);

    Hub& hub_;
    Discovery discovery_;
    std::map<std::uint64_t, Connection*> connected_;
    std::map<std::uint64_t, Found> found_;
    std::map<std::string, Named> named_;    // by "host:port"
    std::list<Attempt> attempts_;           // oldest first
    std::map<std::uint64_t, Asker> askers_; // by the nonce of their connection
    std::set<std::uint64_t> otherVersions_; // reported already
    std::set<std::uint64_t> closed_;        // instances that refuse this machine's address
    std::deque<Query> queries_;             // the latest, oldest first
    std::uint64_t sent_ = 0;                // queries in all
    Clock::time_point searched_;
    Clock::time_point searchAgain_;
    double usedInterval_ = 0.0;
    bool stopped_ = false;

    std::atomic<double> interval_ = MultiClient::kDefaultSearchInterval;
    std::atomic<int> measuredQueries_ = MultiClient::kDefaultMeasuredQueries;
    std::atomic<std::size_t> maxFound_ = MultiClient::kMaxFoundServers;
    std::atomic<bool> connecting_ = true;
    std::atomic<bool> wantedChanged_ = false;
    mutable Vessa::Mutex mutex_;
    std::set<std::pair<std::string, std::uint16_t>> wanted_ ORVEL_GUARDED_BY(mutex_);
    std::vector<short> serverIds_ ORVEL_GUARDED_BY(mutex_); // empty: all
    std::vector<MultiClient::FoundServer> publishedServers_ ORVEL_GUARDED_BY(mutex_);
    std::vector<MultiClient::SearchedInterface> publishedInterfaces_ ORVEL_GUARDED_BY(mutex_);
};

} // namespace Corvid::detail
