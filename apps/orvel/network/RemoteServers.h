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

/// The servers that the client back ends of a world drive, as far as the tool is concerned: who
/// comes and goes, and which of them another player drives. The world must outlive it. Confined to
/// the world's thread.
class RemoteServers {
public:
    /// Has the client back ends, which were added before, connect to these servers, "HOST:PORT".
    /// `wait`: whether to wait where another player drives.
    RemoteServers(Orvel::World& world, const std::vector<std::string>& servers, bool wait);
    RemoteServers(const RemoteServers&) = delete;
    RemoteServers& operator=(const RemoteServers&) = delete;
    ~RemoteServers();

    /// To be called after each turn of the world: tells which servers have come and gone since the
    /// last call, and once if none comes. A server that comes late is told the states of all parts,
    /// and would begin what is over on the others; it is told to stop that again.
    void look();

    /// Whether the scene is to stand still, as it waits for all servers that are connected.
    [[nodiscard]] bool isHeld() const { return wait_ && held_; }
    /// Whether another player drives all servers, and this one is not to wait.
    [[nodiscard]] bool isGivenUp() const;
    /// Whether another player has come in the way and, if this one waits, is in the way still.
    [[nodiscard]] bool wasHindered() const { return wait_ ? !othersDrive_.empty() : hindered_; }

private:
    using Clock = std::chrono::steady_clock;
    struct Client {
        explicit Client(Orvel::ClientBackend& client);
        Orvel::ClientBackend& backend;
        PeerWatch watch;
        bool regained = false; ///< it drives a server again
    };

    void take(Client& client, const Orvel::DriverEvent& event, const std::string& server);

    void stopWhatIsOver(const Client& client);

    Orvel::World& world_;
    std::list<Client> clients_;
    Show::PlayClock* clock_ = nullptr; // the world's; null without clients
    Clock::time_point begin_;
    Clock::time_point last_; // look()
    bool wait_;
    bool sounds_ = false;               // on this machine too
    std::set<std::string> othersDrive_; // the servers that another player drives
    bool hindered_ = false;             // there has been one
    bool held_ = false;                 // there are only such servers
    Clock::time_point heldSince_;
    bool told_ = false; // that none comes, or one has come
};

} // namespace OrvelTool
