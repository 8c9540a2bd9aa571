#include <Show/monitor/NetworkReading.h>

#include <Corvid/MultiClient.h>
#include <Corvid/MultiServer.h>
#include <Orvel/ClientBackend.h>
#include <Orvel/Server.h>

namespace Show {

std::vector<NetworkEnd> readNetwork(const Orvel::World& world) {
    std::vector<NetworkEnd> ends;
    if (const auto* server = dynamic_cast<const Orvel::Server*>(&world)) {
        const Corvid::MultiServer& network = server->multiServer();
        ends.push_back({"server", network.id(), network.port(), network.counters()});
    }
    for (const Orvel::Backend* backend : world.backends()) {
        if (const auto* client = dynamic_cast<const Orvel::ClientBackend*>(backend)) {
            const Corvid::MultiClient& network = client->multiClient();
            ends.push_back({"client", network.id(), 0, network.counters()});
        }
    }
    return ends;
}

} // namespace Show
