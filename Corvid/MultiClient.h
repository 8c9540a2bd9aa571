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

/// Finds servers by multicast and connects to each of them once, again after it was lost; servers
/// that multicast does not reach are named with connectToServer(). See MultiCommunicator for
/// threads.
class ORVEL_EXPORT MultiClient : public MultiCommunicator {
public:
    /// A server that has answered or announced itself.
    struct FoundServer {
        std::uint64_t instance = 0;
        short id = 0;
        InetAddress address; ///< of the latest answer
        std::uint16_t port = 0;
        double roundTripSeconds =
            -1.0;                  ///< of the latest answer; negative if it only announced itself
        InetAddress interface;     ///< where it was heard
        double clockSeconds = 0.0; ///< how long it had been open when it said so, by its own clock
        bool connected = false;
    };
    using SearchedInterface = Multicast::UsedInterface;

    static constexpr double kDefaultSearchInterval = 3.0;
    static constexpr std::size_t kMaxFoundServers = 1024;
    static constexpr int kMaxDelivered = 65536; ///< frames and losses in one deliver()

    /// `protocolVersion`: servers of another version are not connected to.
    explicit MultiClient(int protocolVersion);
    ~MultiClient() override;

    /// Starts searching, at the first waiting or receiving call. False if it is open already or has
    /// been closed.
    bool open();

    /// Seconds between searches; also between attempts to reach a server named with
    /// connectToServer(). At least 0.05; 3.0 at first. Synchronised.
    void setSearchInterval(double seconds);
    /// How many servers that were found are remembered, and connected to, at a time;
    /// kMaxFoundServers at first. Those that no longer answer, or cannot be reached, give way.
    /// Servers that are named do not count. Synchronised.
    void setMaxFoundServers(std::size_t count);
    /// Whether servers that are found are connected to; true at first. Synchronised.
    void setConnecting(bool connecting);

    /// Connects only to found servers with one of these ids; none: to all, as at first. Connections
    /// stay, and servers named with connectToServer() are not concerned. Synchronised.
    void setServerIds(std::vector<short> ids);

    /// Keeps a connection with a server that multicast does not find, trying again at the search
    /// interval until removeServer(). A name is looked up anew for each attempt. Servers stay
    /// connected when they are removed. Synchronised.
    void connectToServer(const std::string& host, unsigned short port);
    void removeServer(const std::string& host, unsigned short port);

    /// Set before open(): new connections and what they send are kept until deliver(), while a
    /// thread of its own stays inside waitForCommunicators(), which returns only after breakWait().
    void setDeferred(bool deferred);
    /// Only when deferred, on the host's thread: calls addCommunicator() for each new connection,
    /// then `receive` once for each frame that has arrived and each loss. `receive` may call
    /// removeCommunicator() and delete the connection that it was given. Never waits for the
    /// network. Returns the number of calls of `receive`, at most kMaxDelivered; the rest is for
    /// the next call. A call from within `receive` or addCommunicator() does nothing.
    int deliver(const std::function<void(Communicator*)>& receive);

    [[nodiscard]] Multicast& multicast() { return multicast_; }
    [[nodiscard]] const Multicast& multicast() const { return multicast_; }
    /// Servers heard in the latest three search intervals. Synchronised.
    [[nodiscard]] std::vector<FoundServer> foundServers() const;
    /// The interfaces of the latest search. Synchronised.
    [[nodiscard]] std::vector<SearchedInterface> searchedInterfaces() const;

private:
    Multicast multicast_;
    std::shared_ptr<detail::Connector> connector_;
};

} // namespace Corvid
