#pragma once

#include "network/PeerWatch.h"

#include <Orvel/World.h>

#include <chrono>
#include <cstddef>
#include <list>
#include <set>
#include <string>
#include <vector>

namespace Orvel {
class ClientBackend;
class DriverEvent;
} // namespace Orvel

namespace Show {
class PlayClock;
}

namespace OrvelTool {

/// Watches the servers that a world's client back ends drive: which connect and disconnect, and
/// which of them another player drives. The world must outlive it. Confined to the world's thread.
class RemoteServers {
public:
    /// Connects the world's client back ends to these servers, "HOST:PORT". Add the back ends
    /// before. `wait`: wait while another player drives, rather than give up.
    RemoteServers(Orvel::World& world, const std::vector<std::string>& servers, bool wait);
    RemoteServers(const RemoteServers&) = delete;
    RemoteServers& operator=(const RemoteServers&) = delete;
    ~RemoteServers();

    /// Before the scene begins: waits until servers have been found and are ready to begin it with
    /// the others, but not for long, and not after a stop signal. Updates the world. Without a
    /// latency it does not wait. Where the output of a server needs a greater latency, it is raised
    /// if `mayRaise`, and else reported.
    void waitUntilReady(bool mayRaise);

    /// Call it after each update of the world. Reports the servers that have connected or
    /// disconnected since the last call, and once if none is found. A late server receives the
    /// states of all parts and would start sounds that are over on the others, so this stops them
    /// there.
    void look();

    /// Whether the world has client back ends.
    [[nodiscard]] bool isUsed() const { return !clients_.empty(); }
    /// Whether servers apply changes as they arrive, and so sounds that play start from their
    /// beginning on a server that comes late.
    [[nodiscard]] bool haveNoLatency() const;
    /// Number of connected servers, as of the last look().
    [[nodiscard]] std::size_t connected() const { return connected_; }
    /// Whether the scene must stand still because other players drive all connected servers.
    [[nodiscard]] bool isHeld() const { return wait_ && held_; }
    /// Whether to end because other players drive all servers and --wait was not given.
    [[nodiscard]] bool isGivenUp() const;
    /// Whether the world has client back ends, and no server was ever connected.
    [[nodiscard]] bool wasAlone() const { return isUsed() && !found_; }
    /// Whether another player drove a server; with --wait, whether one still does.
    [[nodiscard]] bool wasHindered() const { return wait_ ? !othersDrive_.empty() : hindered_; }

private:
    using Clock = std::chrono::steady_clock;
    struct Client {
        explicit Client(Orvel::ClientBackend& client);
        Orvel::ClientBackend& backend;
        PeerWatch watch;
        bool regained = false; ///< this player drives a server again
    };

    void take(Client& client, const Orvel::DriverEvent& event, const std::string& server);

    void stopWhatIsOver(const Client& client);
    void fitLatency(bool mayRaise);

    Orvel::World& world_;
    std::list<Client> clients_;
    Show::PlayClock* clock_ = nullptr; // owned by the world; null without clients
    Clock::time_point begin_;
    Clock::time_point last_; // time of the last look()
    std::size_t connected_ = 0;
    bool wait_;
    bool sounds_ = false;               // plays on this machine too
    std::set<std::string> othersDrive_; // servers that another player drives
    bool hindered_ = false;             // another player has driven a server
    bool held_ = false;                 // other players drive all servers
    Clock::time_point heldSince_;
    bool found_ = false;    // a server was
    bool reported_ = false; // that none was found
};

} // namespace OrvelTool
