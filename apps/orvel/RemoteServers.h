#pragma once

#include "PeerWatch.h"

#include <Orvel/World.h>

#include <chrono>
#include <list>
#include <string>
#include <vector>

namespace OrvelTool {

/// The servers that the client back ends of a world drive, as far as the tool's user is concerned.
/// The world must outlive it. Confined to the world's thread.
class RemoteServers {
public:
    /// Has the client back ends, which were added before, connect to these servers, "HOST:PORT".
    RemoteServers(const Orvel::World& world, const std::vector<std::string>& servers);

    /// Tells which servers have come and gone since the last call, and once if none comes.
    void look();

private:
    using Clock = std::chrono::steady_clock;

    std::list<PeerWatch> watches_; // one for each back end
    Clock::time_point complainAt_;
    bool found_ = false;
};

} // namespace OrvelTool
