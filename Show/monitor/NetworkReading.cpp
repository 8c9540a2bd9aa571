#include <Show/monitor/NetworkReading.h>

#include <Corvid/MultiServer.h>
#include <Orvel/Backend.h>
#include <Orvel/BackendState.h>
#include <Orvel/Server.h>

#include <utility>

namespace Show {

std::vector<NetworkEnd> readNetwork(const Orvel::World& world) {
    std::vector<NetworkEnd> ends;
    if (const auto* server = dynamic_cast<const Orvel::Server*>(&world)) {
        const Corvid::MultiServer& network = server->multiServer();
        ends.push_back({"server", network.id(), network.port(), network.counters()});
    }
    for (const Orvel::Backend* backend : world.backends()) {
        if (auto network = backend->state().network) {
            ends.push_back({"client", network->id, 0, std::move(network->counters)});
        }
    }
    return ends;
}

} // namespace Show
