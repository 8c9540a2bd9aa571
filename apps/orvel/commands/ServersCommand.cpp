#include "commands/ServersCommand.h"

#include "process/StopSignals.h"

#include <Corvid/Event.h>
#include <Orvel/ClockEvent.h>
#include <Orvel/CommandEvent.h>
#include <Orvel/TimingEvent.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <tuple>
#include <utility>

namespace OrvelTool {

namespace {

using namespace std::chrono_literals;

constexpr double kDefaultSeconds = 1.0;
constexpr double kQueries = 4.0;         // within that time, as datagrams get lost
constexpr double kLongestInterval = 1.0; // between two queries, in seconds
constexpr auto kSignalWait = 100ms;      // until a signal is noticed

/// Asks the servers that it connects to how they keep their players' times.
class TimingClient : public Corvid::MultiClient {
public:
    TimingClient() : MultiClient(Orvel::CommandEvent::kProtocolVersion) {}

    bool addCommunicator(Corvid::Communicator* connection) override {
        if (!MultiClient::addCommunicator(connection)) {
            return false;
        }
        if ((connection->features() & Orvel::ClockEvent::kFeature) != 0) {
            Orvel::CommandEvent(Orvel::CmdAskTiming).send(connection);
        }
        return true;
    }
    /// Takes the answers that have arrived. `take` gets the server's name and its answer.
    template <class Take>
    void receive(const Take& take) {
        int waiting = 0;
        Corvid::Communicator* server = nullptr;
        while (communicatorsAvail(waiting) && waiting > 0 && receiveCommunicator(server)) {
            Corvid::Event* received = nullptr;
            const bool good = Corvid::Event::receive(server, received);
            const std::unique_ptr<Corvid::Event> event(received);
            if (const auto* timing = dynamic_cast<const Orvel::TimingEvent*>(event.get())) {
                take(server->counters().peer, timing->timing());
            }
            if (!good) {
                removeCommunicator(server);
                delete server;
            }
        }
    }
};

/// The end of a server's name, which may begin with that of its key.
std::string endOf(const std::string& peer) {
    const auto space = peer.rfind(' ');
    return space == std::string::npos ? peer : peer.substr(space + 1);
}

double toMilliseconds(double seconds) {
    return std::round(seconds * 1e6) / 1e3;
}

} // namespace

ServersCommand::ServersCommand(CLI::App& parent) {
    declare(parent, "servers", "List the sound servers on the network");
    declareSeconds("How long to wait for answers, in seconds (default: 1)");
    app().add_flag("--json", json_, "Print JSON instead of a table");
    app().add_flag(
        "--timing", timing_,
        "Connect to each server, and show how well it keeps the times of its player");
    network_.declare(app());
    network_.declareLimits(app(), true);
    network_.declareKey(app(), false);
    app().footer("The exit code is 1 when no server answers.");
}

int ServersCommand::run() {
    using Clock = std::chrono::steady_clock;
    const double seconds = seconds_ > 0.0 ? seconds_ : kDefaultSeconds;
    if (!network_.checkKey()) {
        return kFailure;
    }
    network_.restrictInterfaces();
    TimingClient client;
    client.setDiagnostic([this](Corvid::MultiCommunicator::Severity severity, const auto& text) {
        if (verbose_ || severity == Corvid::MultiCommunicator::Severity::Warning) {
            report(text);
        }
    });
    network_.apply(client.multicast());
    network_.limit(client);
    client.setConnecting(timing_);
    if (!network_.key().empty()) {
        client.setKeys(network_.key());
    }
    client.setSearchInterval(std::min(seconds / kQueries, kLongestInterval));
    const StopSignals signals;
    client.open();
    const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                        std::chrono::duration<double>(seconds));
    Timings timings;
    for (auto now = Clock::now(); now < end && !StopSignals::came(); now = Clock::now()) {
        client.waitForCommunicators(std::min<Clock::duration>(end - now, kSignalWait));
        client.receive([&timings](const std::string& peer, const auto& timing) {
            timings[endOf(peer)] = timing;
        });
    }
    Servers servers = client.foundServers();
    std::sort(servers.begin(), servers.end(), [](const auto& a, const auto& b) {
        return std::tuple(a.id, a.address.bits(), a.port) <
               std::tuple(b.id, b.address.bits(), b.port);
    });
    if (json_) {
        writeJson(servers, timings, client);
    } else if (!servers.empty()) {
        writeTable(servers);
        if (timing_) {
            writeTimings(servers, timings);
        }
    }
    if (servers.empty()) {
        explainSilence(client);
        return kFailure;
    }
    return kSuccess;
}

void ServersCommand::writeTable(const Servers& servers) {
    standardOutput() << "    id  address          port  round trip  found on\n";
    for (const auto& server : servers) {
        std::string trip = "-"; // announced, but no answer
        if (server.roundTripSeconds >= 0.0) {
            char text[32];
            std::snprintf(text, sizeof text, "%.2f ms", toMilliseconds(server.roundTripSeconds));
            trip = text;
        }
        char line[128];
        std::snprintf(
            line, sizeof line, "%6d  %-15s %5u  %10s  %s\n", server.id,
            server.address.text().c_str(), unsigned{server.port}, trip.c_str(),
            server.interface.text().c_str());
        standardOutput() << line;
    }
}

void ServersCommand::writeTimings(const Servers& servers, const Timings& timings) {
    standardOutput() << "\n    id  clock (ms)      error       drift  round trip  late batches  "
                        "scene age\n";
    for (const auto& server : servers) {
        const auto found = timings.find(server.address.text() + ':' + std::to_string(server.port));
        char line[160];
        if (found == timings.end() || found->second.batches == 0) {
            std::snprintf(
                line, sizeof line, "%6d  %s\n", server.id,
                found == timings.end() ? "has not answered, or keeps no times"
                                       : "has no player with a latency");
        } else {
            const auto& timing = found->second;
            std::snprintf(
                line, sizeof line,
                "%6d  %+10.3f  %6.3f ms  %+6.1f ppm  %7.2f ms  %5llu of %-5llu  %7.2f s\n",
                server.id, static_cast<double>(timing.clock.offset) * 1e-6,
                timing.clock.error * 1e3, timing.clock.drift * 1e6, timing.clock.roundTrip * 1e3,
                static_cast<unsigned long long>(timing.lateBatches),
                static_cast<unsigned long long>(timing.batches), timing.sceneAge);
        }
        standardOutput() << line;
    }
}

void ServersCommand::writeJson(
    const Servers& servers, const Timings& timings, const Corvid::MultiClient& client) const {
    using Json = nlohmann::ordered_json;
    const Corvid::Multicast::Settings settings = client.multicast().settings();
    Json json;
    json["servers"] = Json::array();
    for (const auto& server : servers) {
        Json entry;
        entry["id"] = server.id;
        entry["address"] = server.address.text();
        entry["port"] = server.port;
        entry["roundTripMs"] = server.roundTripSeconds >= 0.0
                                   ? Json(toMilliseconds(server.roundTripSeconds))
                                   : Json(nullptr);
        entry["clockSeconds"] = server.clockSeconds;
        entry["interface"] = server.interface.text();
        const auto found = timings.find(server.address.text() + ':' + std::to_string(server.port));
        if (timing_) {
            Json timing;
            if (found != timings.end() && found->second.batches > 0) {
                const auto& clock = found->second.clock;
                timing["clockOffsetMs"] = static_cast<double>(clock.offset) * 1e-6;
                timing["clockErrorMs"] = clock.error * 1e3;
                timing["clockDriftPpm"] = clock.drift * 1e6;
                timing["roundTripMs"] = clock.roundTrip * 1e3;
                timing["jitterMs"] = clock.jitter * 1e3;
                timing["batches"] = found->second.batches;
                timing["lateBatches"] = found->second.lateBatches;
                timing["sceneAgeSeconds"] = found->second.sceneAge;
            }
            entry["timing"] = std::move(timing); // null without a player that has a latency
        }
        json["servers"].push_back(std::move(entry));
    }
    json["group"] = settings.address.text();
    json["port"] = settings.port;
    json["ttl"] = settings.ttl;
    json["searched"] = Json::array();
    for (const auto& interface : client.searchedInterfaces()) {
        Json entry;
        entry["name"] = interface.name;
        entry["address"] = interface.address.text();
        entry["error"] = interface.error.empty() ? Json(nullptr) : Json(interface.error);
        json["searched"].push_back(std::move(entry));
    }
    standardOutput() << json.dump(2, ' ', true, Json::error_handler_t::replace) << '\n';
}

void ServersCommand::explainSilence(const Corvid::MultiClient& client) const {
    const Corvid::Multicast::Settings settings = client.multicast().settings();
    const std::string port = std::to_string(settings.port);
    std::string text = "no server has answered. Searched " + settings.address.text() +
                       ", UDP port " + port + ", TTL " + std::to_string(settings.ttl) + ", on:";
    const auto searched = client.searchedInterfaces();
    for (const auto& interface : searched) {
        text += "\n  " + interface.name + " " + interface.address.text() +
                (interface.error.empty() ? "" : ": failed: " + interface.error);
    }
    text += searched.empty() ? "\n  no interface: none of those to use is up" : "";
    text += "\nCheck that \"orvel serve\" is running, with the same --group and --port; that no "
            "firewall drops UDP port " +
            port + " on either machine; " +
            (network_.key().empty() ? "that it was started with --open, or with a key that you "
                                      "give here with --key FILE"
                                    : "that its key file has the first key of " + network_.key()) +
            "; and that both are on one network, or else have a --ttl above 1. "
            "Without multicast, use orvel play SCENE --backend client --server HOST:PORT, with the "
            "TCP port that the server prints when it starts.";
    report(text);
}

} // namespace OrvelTool
