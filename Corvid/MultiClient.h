#pragma once

#include <Corvid/InetAddress.h>
#include <Corvid/MultiCommunicator.h>
#include <Corvid/Multicast.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <orvel_export.h>

namespace Corvid {

namespace detail {
class Connector;
}

/// Finds servers by multicast and connects to each of them once, and again after a loss. Servers
/// that multicast does not reach are given to connectToServer(). See MultiCommunicator for threads.
class ORVEL_EXPORT MultiClient : public MultiCommunicator {
public:
    /// A server that has answered or announced itself.
    struct FoundServer {
        std::uint64_t instance = 0;
        short id = 0;
        InetAddress address; ///< of the latest answer
        std::uint16_t port = 0;
        double roundTripSeconds = -1.0; ///< of the latest answer; negative without one
        InetAddress interface;          ///< the interface that received it
        double clockSeconds = 0.0;      ///< since the server opened, by its own clock
        bool connected = false;
        /// Of the measured queries (setMeasuredQueries()) those from the first that it answered on.
        int queries = 0;
        int answers = 0; ///< to `queries`; the others are lost or on their way
        /// Round trips of `answers`, of the first to each query; negative without one.
        double leastRoundTripSeconds = -1.0;
        double usualRoundTripSeconds = -1.0; ///< 95 % are not longer
        double greatestRoundTripSeconds = -1.0;
    };
    using SearchedInterface = Multicast::UsedInterface;

    static constexpr double kDefaultSearchInterval = 3.0;
    static constexpr std::size_t kMaxFoundServers = 1024;
    static constexpr int kDefaultMeasuredQueries = 2;
    static constexpr int kMaxMeasuredQueries = 32;
    static constexpr int kMaxDelivered = 65536; ///< limit of frames and losses in one deliver()

    /// `protocolVersion`: servers with another version are ignored.
    explicit MultiClient(int protocolVersion);
    ~MultiClient() override;

    /// Starts searching, at the first waiting or receiving call. Returns false if it is open
    /// already or has been closed.
    bool open();

    /// Seconds between searches, and between attempts to reach a server of connectToServer(). At
    /// least 0.05; 3.0 by default. Synchronised.
    void setSearchInterval(double seconds);
    /// The number of latest queries whose answers are taken and measured, from 2 (the default) to
    /// kMaxMeasuredQueries. To measure a network, set more and a short search interval; servers
    /// are then remembered for one search interval more than that. Synchronised.
    void setMeasuredQueries(int count);
    /// Limit of found servers that are remembered and connected to; kMaxFoundServers by default.
    /// Servers that no longer answer, or cannot be reached, give way. Servers of connectToServer()
    /// do not count. Synchronised.
    void setMaxFoundServers(std::size_t count);
    /// Whether to connect to found servers; true by default. Synchronised.
    void setConnecting(bool connecting);

    /// Restricts new connections to found servers with one of these ids; an empty list, the
    /// default, allows all. Does not affect existing connections and servers of connectToServer().
    /// Synchronised.
    void setServerIds(std::vector<short> ids);

    /// Keeps a connection to a server that multicast does not find, and retries at the search
    /// interval until removeServer(). The name is resolved at each attempt. Removing a server keeps
    /// its connection. Synchronised.
    void connectToServer(const std::string& host, unsigned short port);
    void removeServer(const std::string& host, unsigned short port);

    /// Call it before open(): new connections and received events are held until deliver(), while a
    /// dedicated thread stays inside waitForCommunicators(), which returns only after breakWait().
    void setDeferred(bool deferred);
    /// In deferred mode only, on the host's thread: calls addCommunicator() for each new
    /// connection, then `receive` once for each received frame and each loss. `receive` may call
    /// removeCommunicator() and delete its connection. Never waits for the network. Returns the
    /// number of calls of `receive`, at most kMaxDelivered; the rest is for the next call. A nested
    /// call, from `receive` or addCommunicator(), does nothing.
    int deliver(const std::function<void(Communicator*)>& receive);

    [[nodiscard]] Multicast& multicast() { return multicast_; }
    [[nodiscard]] const Multicast& multicast() const { return multicast_; }
    /// Servers that answered in the latest three search intervals, or see setMeasuredQueries().
    /// Synchronised.
    [[nodiscard]] std::vector<FoundServer> foundServers() const;
    /// The interfaces of the latest search. Synchronised.
    [[nodiscard]] std::vector<SearchedInterface> searchedInterfaces() const;

private:
    Multicast multicast_;
    std::shared_ptr<detail::Connector> connector_;
};

} // namespace Corvid
