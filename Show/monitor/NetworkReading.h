#pragma once

#include <Corvid/MultiCommunicator.h>

#include <cstdint>
#include <vector>

namespace Orvel {
class World;
}

namespace Show {

/// A network endpoint of a world: the world itself if it is a server, or a client back end.
struct NetworkEnd {
    const char* role = ""; ///< "server" or "client"
    short id = 0;
    std::uint16_t port = 0; ///< of a server
    Corvid::MultiCommunicator::Counters counters;
};

/// Reads the counters of all endpoints, the server's first. On the world's thread.
std::vector<NetworkEnd> readNetwork(const Orvel::World& world);

} // namespace Show
