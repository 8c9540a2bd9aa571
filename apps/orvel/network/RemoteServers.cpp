#include "network/RemoteServers.h"

#include "network/NetworkOptions.h"
#include "process/Output.h"
#include "process/StopSignals.h"
#include <Show/player/DelayedBackend.h>
#include <Show/player/PlayClock.h>

#include <Corvid/MultiClient.h>
#include <Orvel/BackendState.h>
#include <Orvel/ClientBackend.h>
#include <Orvel/DriverEvent.h>
#include <Orvel/Emitter.h>
#include <Orvel/Source.h>

#include <algorithm>
#include <thread>
#include <utility>

namespace OrvelTool {

namespace {

constexpr std::chrono::seconds kPatience{2};
/// Time for the remaining servers to answer when all that have answered have another player.
constexpr std::chrono::milliseconds kGrace{500};
/// Before the scene begins: time to find a server, and then for all to measure this machine's
/// clock, which takes them 1.3 s at most.
constexpr std::chrono::milliseconds kTimeToFind{500};
constexpr std::chrono::milliseconds kTimeToMeasure{1500};
constexpr std::chrono::milliseconds kReadyPoll{5};
/// What the network takes, and by how much outputs vary.
constexpr std::chrono::milliseconds kNetworkShare{40};

} // namespace

RemoteServers::Client::Client(Orvel::ClientBackend& client)
    : backend(client), watch(client.multiClient(), "server") {}

RemoteServers::RemoteServers(
    Orvel::World& world, const std::vector<std::string>& servers, bool wait)
    : world_(world), begin_(Clock::now()), last_(begin_), wait_(wait) {
    for (Orvel::ClientBackend* client : clientsOf(world)) {
        for (const std::string& server : servers) {
            const auto [host, port] = hostAndPort(server);
            client->multiClient().connectToServer(host, port);
        }
        Client& entry = clients_.emplace_back(*client);
        client->setDriverHandler([this, &entry](const auto& event, const std::string& server) {
            take(entry, event, server);
        });
    }
    sounds_ = std::ranges::any_of(world.backends(), [](const Orvel::Backend* backend) {
        return !backend->state().device.empty();
    });
    if (!clients_.empty()) {
        clock_ = new Show::PlayClock(world); // the world deletes it
    }
}

RemoteServers::~RemoteServers() {
    for (const Client& client : clients_) {
        client.backend.setDriverHandler({});
    }
}

void RemoteServers::take(
    Client& client, const Orvel::DriverEvent& event, const std::string& server) {
    using Event = Orvel::DriverEvent;
    if (event.state == Event::Driving) {
        if (othersDrive_.erase(server) != 0) {
            client.regained = true;
            report("server " + server + ": driving it now");
        }
    } else if (event.state == Event::Replaced || event.state == Event::Refused) {
        othersDrive_.insert(server);
        hindered_ = true;
        report(
            "server " + server + (event.state == Event::Replaced ? ": replaced: " : ": refused: ") +
            event.text +
            (wait_ ? "; waiting for it to leave" : "; this player is not heard there"));
    }
}

bool RemoteServers::isGivenUp() const {
    return held_ && !wait_ && Clock::now() >= heldSince_ + kGrace;
}

bool RemoteServers::haveNoLatency() const {
    return std::ranges::any_of(clients_, [](const Client& client) {
        return client.backend.latency() == std::chrono::nanoseconds::zero();
    });
}

/// All servers play with one latency, so it is that of the slowest output.
void RemoteServers::fitLatency(bool mayRaise) {
    std::chrono::nanoseconds needed{};
    for (const Client& client : clients_) {
        needed = std::max(needed, client.backend.neededLatency());
    }
    const auto there = needed;
    for (const Orvel::Backend* backend : world_.backends()) {
        if (const auto* here = dynamic_cast<const Show::DelayedBackend*>(backend)) {
            needed = std::max(needed, here->neededLatency());
        }
    }
    const auto latency =
        std::chrono::ceil<std::chrono::duration<int, std::centi>>(needed + kNetworkShare);
    const auto given = clients_.front().backend.latency();
    if (needed == needed.zero() || latency <= given) {
        return;
    }
    const std::string text =
        std::string(needed > there ? "the output here" : "an output of the servers") +
        " needs a latency of " + std::to_string(latency.count() * 10) + " ms";
    if (mayRaise) {
        report(text + ", so all changes are heard so much later");
        for (Client& client : clients_) {
            client.backend.raiseLatency(latency);
        }
    } else {
        report(text + "; with less, sounds begin late there");
    }
}

void RemoteServers::waitUntilReady(bool mayRaise) {
    if (clients_.empty() || haveNoLatency()) {
        return;
    }
    auto limit = Clock::now() + kTimeToFind;
    bool found = false;
    std::size_t missing = 0;
    do {
        world_.update();
        look();
        if (!found && connected_ > 0) {
            found = true;
            limit = Clock::now() + kTimeToMeasure;
        }
        missing = 0;
        for (const Client& client : clients_) {
            missing += client.backend.serversNotReady();
        }
        if (found && missing == 0) {
            break;
        }
        std::this_thread::sleep_for(kReadyPoll);
    } while (Clock::now() < limit && !StopSignals::came());
    fitLatency(mayRaise);
    if (missing > 0) {
        report(
            "beginning, although " + std::to_string(missing) + " of " + std::to_string(connected_) +
            " servers do not know this machine's clock yet; the first sounds may come late there");
    }
}

void RemoteServers::look() {
    if (clients_.empty()) {
        return;
    }
    const auto now = Clock::now();
    begin_ += isHeld() ? now - last_ : Clock::duration::zero();
    last_ = now;
    connected_ = 0;
    clock_->passTo(std::chrono::duration<double>(now - begin_).count(), {});
    for (Client& client : clients_) {
        for (const std::string& server : client.watch.look()) {
            othersDrive_.erase(server);
        }
        found_ = found_ || client.watch.someCame();
        if (client.watch.someCame() || std::exchange(client.regained, false)) {
            stopWhatIsOver(client);
        }
        connected_ += client.watch.count();
    }
    if (const bool held = !othersDrive_.empty() && othersDrive_.size() == connected_ && !sounds_;
        std::exchange(held_, held) != held) {
        heldSince_ = now;
    }
    if (!found_ && now >= begin_ + kPatience && !std::exchange(reported_, true)) {
        report(
            "no server has been found yet; still searching. Run \"orvel servers\" to find out why");
    }
}

void RemoteServers::stopWhatIsOver(const Client& client) {
    for (const auto& [id, source] : world_.sources()) {
        if (source->dataKind() == Orvel::Source::URL_SD) {
            clock_->setLength(id, source->duration());
        }
        // On a server a state spreads to all emitters of a source, so the source may only be
        // stopped if none of its emitters still plays. An emitter that has ended already is not
        // affected.
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
