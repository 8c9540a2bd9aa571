#include "commands/ServersCommand.h"

#include "process/StopSignals.h"

#include <Corvid/Event.h>
#include <Orvel/CheckEvent.h>
#include <Orvel/ClockEvent.h>
#include <Orvel/CommandEvent.h>
#include <Orvel/TimingEvent.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <optional>
#include <tuple>
#include <utility>
#include <vector>

namespace OrvelTool {

namespace {

using namespace std::chrono_literals;

constexpr double kDefaultSeconds = 1.0;
constexpr double kVerifySeconds = 3.0;   // a sweep over a scene takes half a second and more
constexpr double kQueries = 4.0;         // within that time, as datagrams get lost
constexpr double kLongestInterval = 1.0; // between two queries, in seconds
constexpr auto kSignalWait = 100ms;      // until a signal is noticed
constexpr auto kVerifyInterval = 250ms;  // between two questions

/// Asks the servers that it connects to how they keep their players' times, and how their scenes
/// differ from their players'.
class QuestionClient : public Corvid::MultiClient {
public:
    QuestionClient(bool timing, bool verify)
        : MultiClient(Orvel::CommandEvent::kProtocolVersion), timing_(timing), verify_(verify) {}

    bool addCommunicator(Corvid::Communicator* connection) override {
        if (!MultiClient::addCommunicator(connection)) {
            return false;
        }
        if (timing_ && (connection->features() & Orvel::ClockEvent::kFeature) != 0) {
            Orvel::CommandEvent(Orvel::CmdAskTiming).send(connection);
        }
        if (verify_ && (connection->features() & Orvel::CheckEvent::kFeature) == 0) {
            unable_.push_back(connection->counters().peer);
        }
        return true;
    }
    /// Asks once more how scenes differ. The servers compare them between two questions.
    void askDifferences() {
        std::vector<std::byte> frame;
        Orvel::CommandEvent(Orvel::CmdAskDifferences).encode(frame);
        sendFrameTo(Orvel::CheckEvent::kFeature, frame.data(), frame.size());
    }
    /// Takes the answers that have arrived. `take` gets the server's name and its event.
    template <class Take>
    void receive(const Take& take) {
        int waiting = 0;
        Corvid::Communicator* server = nullptr;
        while (communicatorsAvail(waiting) && waiting > 0 && receiveCommunicator(server)) {
            Corvid::Event* received = nullptr;
            const bool good = Corvid::Event::receive(server, received);
            const std::unique_ptr<Corvid::Event> event(received);
            if (good) {
                take(server->counters().peer, *event);
            } else {
                removeCommunicator(server);
                delete server;
            }
        }
    }
    /// The servers whose release is too old to verify them.
    [[nodiscard]] const std::vector<std::string>& unable() const { return unable_; }

private:
    const bool timing_;
    const bool verify_;
    std::vector<std::string> unable_;
};

/// The end of a server's name, which may begin with that of its key.
std::string endOf(const std::string& peer) {
    const auto space = peer.rfind(' ');
    return space == std::string::npos ? peer : peer.substr(space + 1);
}

enum class Comparison { Same, Different, Free, NotCompared, OldPlayer, OldServer, Silent };

/// With its name in JSON.
const char* nameOf(Comparison comparison) {
    constexpr const char* kNames[] = {"same",      "different", "free",  "notCompared",
                                      "oldPlayer", "oldServer", "silent"};
    return kNames[static_cast<std::size_t>(comparison)];
}

Comparison comparisonOf(bool isOld, const std::optional<Orvel::DifferencesEvent>& differences) {
    using State = Orvel::DifferencesEvent::State;
    if (!differences) {
        return isOld ? Comparison::OldServer : Comparison::Silent;
    }
    if (differences->state == State::Free) {
        return Comparison::Free;
    }
    if (differences->state == State::Unable) {
        return Comparison::OldPlayer;
    }
    if (differences->different > 0) {
        return Comparison::Different;
    }
    return differences->sweeps > 0 ? Comparison::Same : Comparison::NotCompared;
}

double toMilliseconds(double seconds) {
    return std::round(seconds * 1e6) / 1e3;
}

} // namespace

ServersCommand::ServersCommand(CLI::App& parent) {
    declare(parent, "servers", "List the sound servers on the network");
    declareSeconds("How long to wait for answers, in seconds (default: 1, with --verify 3)");
    app().add_flag("--json", json_, "Print JSON instead of a table");
    app().add_flag(
        "--timing", timing_,
        "Connect to each server, and show how well it keeps the times of its player");
    app().add_flag(
        "--verify", verify_,
        "Connect to each server, and compare its scene with its player's, part by part");
    network_.declare(app());
    network_.declareLimits(app(), true);
    network_.declareKey(app(), false);
    app().footer(
        "The exit code is 1 when no server answers, or with --verify when a scene differs or could "
        "not be compared.");
}

int ServersCommand::run() {
    using Clock = std::chrono::steady_clock;
    const double seconds = seconds_ > 0.0 ? seconds_ : verify_ ? kVerifySeconds : kDefaultSeconds;
    if (!network_.checkKey()) {
        return kFailure;
    }
    network_.restrictInterfaces();
    QuestionClient client(timing_, verify_);
    client.setDiagnostic([this](Corvid::MultiCommunicator::Severity severity, const auto& text) {
        if (verbose_ || severity == Corvid::MultiCommunicator::Severity::Warning) {
            report(text);
        }
    });
    network_.apply(client.multicast());
    network_.limit(client);
    client.setConnecting(timing_ || verify_);
    if (!network_.key().empty()) {
        client.setKeys(network_.key());
    }
    client.setSearchInterval(std::min(seconds / kQueries, kLongestInterval));
    const StopSignals signals;
    client.open();
    const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                        std::chrono::duration<double>(seconds));
    Answers answers;
    auto nextQuestion = Clock::now();
    for (auto now = Clock::now(); now < end && !StopSignals::came(); now = Clock::now()) {
        if (verify_ && now >= nextQuestion) {
            nextQuestion = now + kVerifyInterval;
            client.askDifferences();
        }
        client.waitForCommunicators(std::min<Clock::duration>(end - now, kSignalWait));
        client.receive([&answers](const std::string& peer, const Corvid::Event& event) {
            Answer& answer = answers[endOf(peer)];
            if (const auto* timing = dynamic_cast<const Orvel::TimingEvent*>(&event)) {
                answer.timing = timing->timing();
            } else if (
                const auto* differences = dynamic_cast<const Orvel::DifferencesEvent*>(&event)) {
                answer.differences = *differences;
            }
        });
    }
    for (const std::string& peer : client.unable()) {
        answers[endOf(peer)].cannotVerify = true;
    }
    Servers servers = client.foundServers();
    std::sort(servers.begin(), servers.end(), [](const auto& a, const auto& b) {
        return std::tuple(a.id, a.address.bits(), a.port) <
               std::tuple(b.id, b.address.bits(), b.port);
    });
    if (json_) {
        writeJson(servers, answers, client);
    } else if (!servers.empty()) {
        writeTable(servers);
        if (timing_) {
            writeTimings(servers, answers);
        }
        if (verify_) {
            writeDifferences(servers, answers);
        }
    }
    if (servers.empty()) {
        explainSilence(client);
        return kFailure;
    }
    const bool good = !verify_ || std::ranges::all_of(servers, [&answers](const auto& server) {
        const Answer answer = answerOf(answers, server);
        const Comparison comparison = comparisonOf(answer.cannotVerify, answer.differences);
        return comparison == Comparison::Same || comparison == Comparison::Free;
    });
    return good ? kSuccess : kFailure;
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

ServersCommand::Answer
ServersCommand::answerOf(const Answers& answers, const Corvid::MultiClient::FoundServer& server) {
    const auto found = answers.find(server.address.text() + ':' + std::to_string(server.port));
    return found == answers.end() ? Answer() : found->second;
}

void ServersCommand::writeTimings(const Servers& servers, const Answers& answers) {
    standardOutput() << "\n    id  clock (ms)      error       drift  round trip  late batches  "
                        "scene age\n";
    for (const auto& server : servers) {
        const auto found = answerOf(answers, server).timing;
        char line[160];
        if (!found || found->batches == 0) {
            std::snprintf(
                line, sizeof line, "%6d  %s\n", server.id,
                !found ? "has not answered, or keeps no times" : "has no player with a latency");
        } else {
            const auto& timing = *found;
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

void ServersCommand::writeDifferences(const Servers& servers, const Answers& answers) {
    standardOutput() << "\n    id  scene\n";
    for (const auto& server : servers) {
        const Answer answer = answerOf(answers, server);
        const Orvel::DifferencesEvent event =
            answer.differences.value_or(Orvel::DifferencesEvent());
        const std::string parts = std::to_string(event.parts) + " parts";
        std::string text;
        switch (comparisonOf(answer.cannotVerify, answer.differences)) {
        case Comparison::Same:
            text = "the same as its player's: " + parts;
            break;
        case Comparison::Different:
            text = std::to_string(event.different) + " of " + parts + " differ:";
            for (const std::string& name : event.names) {
                text += (&name == &event.names.front() ? " " : ", ") + name;
            }
            if (event.different > event.names.size()) {
                text += " and " + std::to_string(event.different - event.names.size()) + " more";
            }
            break;
        case Comparison::Free:
            text = "has no player";
            break;
        case Comparison::NotCompared:
            text = "not compared: its player lags or does not update its scene, or the scene needs "
                   "more --seconds";
            break;
        case Comparison::OldPlayer:
            text = "cannot be verified: its player is of an earlier release";
            break;
        case Comparison::OldServer:
            text = "cannot be verified: it is of an earlier release";
            break;
        case Comparison::Silent:
            text = "has not answered";
            break;
        }
        char id[16];
        std::snprintf(id, sizeof id, "%6d  ", server.id);
        standardOutput() << id << text << '\n';
    }
}

void ServersCommand::writeJson(
    const Servers& servers, const Answers& answers, const Corvid::MultiClient& client) const {
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
        const Answer answer = answerOf(answers, server);
        if (timing_) {
            Json timing;
            const auto& found = answer.timing;
            if (found && found->batches > 0) {
                const auto& clock = found->clock;
                timing["clockOffsetMs"] = static_cast<double>(clock.offset) * 1e-6;
                timing["clockErrorMs"] = clock.error * 1e3;
                timing["clockDriftPpm"] = clock.drift * 1e6;
                timing["roundTripMs"] = clock.roundTrip * 1e3;
                timing["jitterMs"] = clock.jitter * 1e3;
                timing["batches"] = found->batches;
                timing["lateBatches"] = found->lateBatches;
                timing["sceneAgeSeconds"] = found->sceneAge;
            }
            entry["timing"] = std::move(timing); // null without a player that has a latency
        }
        if (verify_) {
            const auto event = answer.differences.value_or(Orvel::DifferencesEvent());
            Json verify;
            verify["scene"] = nameOf(comparisonOf(answer.cannotVerify, answer.differences));
            verify["parts"] = event.parts;
            verify["sweeps"] = event.sweeps;
            verify["different"] = event.different;
            verify["names"] = event.names;
            entry["verify"] = std::move(verify);
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
