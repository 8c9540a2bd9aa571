#pragma once

#include "network/PeerWatch.h"

#include <Orvel/World.h>

#include <chrono>
#include <list>
#include <string>
#include <vector>

namespace Orvel {
class ClientBackend;
}

namespace OrvelTool {

class PlayClock;

/// The servers that the client back ends of a world drive, as far as the tool is concerned. The
/// world must outlive it. Confined to the world's thread.
class RemoteServers {
public:
    /// Has the client back ends, which were added before, connect to these servers, "HOST:PORT".
    RemoteServers(Orvel::World& world, const std::vector<std::string>& servers);

    /// To be called after each turn of the world: tells which servers have come and gone since the
    /// last call, and once if none comes. A server that comes late is told the states of all parts,
    /// and would begin what is over on the others; it is told to stop that again.
    void look();

private:
    using Clock = std::chrono::steady_clock;
    struct Client {
        explicit Client(Orvel::ClientBackend& client);
        Orvel::ClientBackend& backend;
        PeerWatch watch;
    };

    void stopWhatIsOver(const Client& client);

    Orvel::World& world_;
    std::list<Client> clients_;
    PlayClock* clock_ = nullptr; // the world's; null without clients
    Clock::time_point begin_;
    bool told_ = false; // that none comes, or one has come
};

} // namespace OrvelTool
