#include "RemoteServers.h"

#include "Command.h"
#include "NetworkOptions.h"

#include <Corvid/MultiClient.h>
#include <Orvel/ClientBackend.h>

namespace OrvelTool {

namespace {

constexpr std::chrono::seconds kPatience{2};

} // namespace

RemoteServers::RemoteServers(const Orvel::World& world, const std::vector<std::string>& servers)
    : complainAt_(Clock::now() + kPatience) {
    for (Orvel::Backend* backend : world.backends()) {
        if (auto* client = dynamic_cast<Orvel::ClientBackend*>(backend)) {
            for (const std::string& server : servers) {
                const auto [host, port] = hostAndPort(server);
                client->multiClient().connectToServer(host, port);
            }
            watches_.emplace_back(client->multiClient(), "server");
        }
    }
    found_ = watches_.empty();
}

void RemoteServers::look() {
    for (PeerWatch& watch : watches_) {
        watch.look();
        found_ = found_ || watch.count() > 0;
    }
    if (!found_ && Clock::now() >= complainAt_) {
        found_ = true; // once is enough
        complain("no server has been found yet; the search goes on. \"orvel servers\" tells what "
                 "can be wrong");
    }
}

} // namespace OrvelTool
