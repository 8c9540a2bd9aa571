#include "network/RemoteServers.h"

#include "network/NetworkOptions.h"
#include "player/PlayClock.h"
#include "process/Complaint.h"

#include <Corvid/MultiClient.h>
#include <Orvel/ClientBackend.h>
#include <Orvel/Emitter.h>
#include <Orvel/Source.h>

#include <algorithm>

namespace OrvelTool {

namespace {

constexpr std::chrono::seconds kPatience{2};

} // namespace

RemoteServers::Client::Client(Orvel::ClientBackend& client)
    : backend(client), watch(client.multiClient(), "server") {}

RemoteServers::RemoteServers(Orvel::World& world, const std::vector<std::string>& servers)
    : world_(world), begin_(Clock::now()) {
    for (Orvel::Backend* backend : world.backends()) {
        if (auto* client = dynamic_cast<Orvel::ClientBackend*>(backend)) {
            for (const std::string& server : servers) {
                const auto [host, port] = hostAndPort(server);
                client->multiClient().connectToServer(host, port);
            }
            clients_.emplace_back(*client);
        }
    }
    if (!clients_.empty()) {
        clock_ = new PlayClock(world); // the world deletes it
    }
}

void RemoteServers::look() {
    if (clients_.empty()) {
        return;
    }
    const auto now = Clock::now();
    clock_->passTo(std::chrono::duration<double>(now - begin_).count(), {});
    for (Client& client : clients_) {
        client.watch.look();
        if (client.watch.someCame()) {
            told_ = true;
            stopWhatIsOver(client);
        }
    }
    if (!told_ && now >= begin_ + kPatience) {
        told_ = true;
        complain("no server has been found yet; the search goes on. \"orvel servers\" tells what "
                 "can be wrong");
    }
}

void RemoteServers::stopWhatIsOver(const Client& client) {
    for (const auto& [id, source] : world_.sources()) {
        if (source->dataKind() == Orvel::Source::URL_SD) {
            clock_->setLength(id, source->duration());
        }
        // A state reaches all emitters of a source. Those that have ended elsewhere hear no stop.
        const auto& emitters = source->connectedEmitters();
        const auto isOver = [this](const auto& entry) { return clock_->isOver(*entry.second); };
        const auto isActive = [&](const auto& entry) {
            const auto state = entry.second->state();
            return (state == Orvel::Emitter::PLAY || state == Orvel::Emitter::PAUSE) &&
                   !isOver(entry);
        };
        if (std::any_of(emitters.begin(), emitters.end(), isOver) &&
            std::none_of(emitters.begin(), emitters.end(), isActive)) {
            Orvel::CommandEvent event;
            event.address(Orvel::CmdStopSource, id);
            event.send(&client.backend.multiClient());
            for (const auto& [emitterId, emitter] : emitters) {
                event.address(Orvel::CmdStopEmitter, emitterId);
                event.send(&client.backend.multiClient());
            }
        }
    }
}

} // namespace OrvelTool
