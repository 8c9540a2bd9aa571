#include <Show/monitor/MetricsText.h>

#include <Show/detail/ValidText.h>
#include <Show/monitor/Hearings.h>
#include <Show/monitor/MonitorBackend.h>
#include <Show/monitor/NetworkReading.h>

#include <Orvel/BackendState.h>
#include <Orvel/BackendType.h>
#include <Orvel/Emitter.h>
#include <Orvel/Source.h>
#include <Orvel/Version.h>
#include <Orvel/World.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <iterator>
#include <map>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

namespace Show {

namespace {

/// A label's name and value.
using Label = std::pair<std::string_view, std::string_view>;

class Metrics {
public:
    /// Starts a metric; its samples follow.
    void metric(std::string_view name, std::string_view type, std::string_view help) {
        name_ = name;
        text_ += "# HELP ";
        (text_ += name) += ' ';
        (text_ += help) += "\n# TYPE ";
        (text_ += name) += ' ';
        (text_ += type) += '\n';
    }
    template <class Number>
    void sample(Number value, std::initializer_list<Label> labels = {}) {
        text_ += name_;
        char separator = '{';
        for (const auto& [name, content] : labels) {
            text_ += separator;
            (text_ += name) += "=\"";
            for (const char c : validText(content)) {
                if (c == '\n') {
                    text_ += "\\n";
                    continue;
                }
                if (c == '"' || c == '\\') {
                    text_ += '\\';
                }
                text_ += c;
            }
            text_ += '"';
            separator = ',';
        }
        text_ += labels.size() == 0 ? " " : "} ";
        std::array<char, 32> number{};
        text_.append(
            number.data(), std::to_chars(number.data(), number.data() + number.size(), value).ptr);
        text_ += '\n';
    }

    std::string take() { return std::move(text_); }

private:
    std::string text_;
    std::string_view name_;
};

constexpr std::array kStates{"none", "play", "pause", "stop"}; // in the order of their values

template <class Parts>
std::array<std::size_t, kStates.size()> countStates(const Parts& parts) {
    std::array<std::size_t, kStates.size()> counts{};
    for (const auto& [id, part] : parts) {
        ++counts.at(static_cast<std::size_t>(part->state()));
    }
    return counts;
}

void writeScene(Metrics& metrics, const Orvel::World& world) {
    const auto states = [&metrics](const char* name, const char* help, const auto& parts) {
        metrics.metric(name, "gauge", help);
        const auto counts = countStates(parts);
        for (std::size_t i = 0; i < kStates.size(); ++i) {
            metrics.sample(counts[i], {{"state", kStates[i]}});
        }
    };
    states("orvel_emitters", "Emitters in the scene.", world.emitters());
    states("orvel_sources", "Sources in the scene.", world.sources());
    std::map<std::string, int> kinds;
    for (Orvel::Backend* backend : world.backends()) {
        if (!MonitorBackend::isListed(*backend)) {
            continue;
        }
        ++kinds[backend->type() == nullptr ? "" : backend->type()->name()];
    }
    metrics.metric("orvel_backends", "gauge", "Back ends of the world.");
    for (const auto& [kind, count] : kinds) {
        metrics.sample(count, {{"kind", kind}});
    }
}

void writeSound(Metrics& metrics, const Orvel::World& world) {
    struct Sums {
        std::size_t used = 0, allowed = 0, streams = 0, open = 0;
        std::uint64_t gaps = 0;
        double latency = 0.0;
    };
    std::map<std::string, Sums> kinds; // those that mix
    for (Orvel::Backend* backend : world.backends()) {
        const Orvel::BackendState state = backend->state();
        if (state.voicesAllowed == 0) {
            continue;
        }
        Sums& sums = kinds[backend->type() == nullptr ? "" : backend->type()->name()];
        sums.used += state.voicesUsed;
        sums.allowed += state.voicesAllowed;
        sums.streams += state.streams;
        sums.gaps += state.gaps;
        sums.open += state.device.empty() ? 0 : 1;
        sums.latency = std::max(sums.latency, state.latency.value_or(0.0));
    }
    if (kinds.empty()) {
        return;
    }
    const auto each = [&](const char* name, const char* type, const char* help, auto member) {
        metrics.metric(name, type, help);
        for (const auto& [kind, sums] : kinds) {
            metrics.sample(sums.*member, {{"kind", kind}});
        }
    };
    each("orvel_voices", "gauge", "Emitters that are mixed.", &Sums::used);
    each("orvel_voices_max", "gauge", "Emitters that can be mixed at once.", &Sums::allowed);
    each("orvel_streams", "gauge", "Sounds that are read while they play.", &Sums::streams);
    each(
        "orvel_stream_gaps_total", "counter", "Data of such sounds that came too late.",
        &Sums::gaps);
    each("orvel_sound_devices", "gauge", "Sound devices that are open.", &Sums::open);
    each(
        "orvel_latency_seconds", "gauge", "From a change until it leaves the device; 0 if unknown.",
        &Sums::latency);
    std::array<std::size_t, 6> counts{};
    for (const auto& [id, heard] : hearingsOf(world)) {
        ++counts.at(static_cast<std::size_t>(heard.hearing));
    }
    metrics.metric("orvel_emitters_heard", "gauge", "Emitters by how they are heard.");
    for (std::size_t i = 0; i < counts.size(); ++i) {
        metrics.sample(
            counts[i], {{"hearing", nameOf(static_cast<Orvel::BackendState::Hearing>(i))}});
    }
}

void writeNetwork(Metrics& metrics, const Orvel::World& world) {
    struct Sums {
        std::uint64_t connections = 0, connected = 0, refused = 0, dropped = 0, kept = 0;
        std::uint64_t eventsIn = 0, eventsOut = 0, bytesIn = 0, bytesOut = 0;
        std::uint64_t leftOut = 0, waiting = 0, mostWaiting = 0, ignored = 0;
    };
    std::map<std::string_view, Sums> roles;
    for (const NetworkEnd& end : readNetwork(world)) {
        const auto& c = end.counters;
        Sums& sums = roles[end.role];
        for (const auto& connection : c.connections) {
            sums.connections += connection.lost ? 0 : 1;
            sums.waiting += connection.bytesWaiting;
            sums.mostWaiting = std::max(sums.mostWaiting, connection.bytesWaiting);
        }
        sums.connected += c.connected;
        sums.refused += c.refused;
        sums.dropped += c.dropped;
        sums.kept += c.bytesKept;
        sums.eventsIn += c.eventsIn;
        sums.eventsOut += c.eventsOut;
        sums.leftOut += c.eventsLeftOut;
        sums.bytesIn += c.bytesIn;
        sums.bytesOut += c.bytesOut;
        sums.ignored += c.datagramsIgnored;
    }
    const auto each = [&](const char* name, const char* type, const char* help,
                          std::uint64_t Sums::*member) {
        metrics.metric(name, type, help);
        for (const auto& [role, sums] : roles) {
            metrics.sample(sums.*member, {{"role", role}});
        }
    };
    const auto both = [&](const char* name, const char* help, std::uint64_t Sums::*in,
                          std::uint64_t Sums::*out) {
        metrics.metric(name, "counter", help);
        for (const auto& [role, sums] : roles) {
            metrics.sample(sums.*in, {{"role", role}, {"direction", "in"}});
            metrics.sample(sums.*out, {{"role", role}, {"direction", "out"}});
        }
    };
    if (roles.empty()) {
        return;
    }
    each("orvel_network_connections", "gauge", "Connections that stand now.", &Sums::connections);
    each("orvel_network_connected_total", "counter", "Connections made so far.", &Sums::connected);
    each("orvel_network_refused_total", "counter", "Peers that were refused.", &Sums::refused);
    each("orvel_network_dropped_total", "counter", "Connections that were lost.", &Sums::dropped);
    both(
        "orvel_network_events_total", "Events over all connections.", &Sums::eventsIn,
        &Sums::eventsOut);
    each(
        "orvel_network_left_out_events_total", "counter",
        "Events that were superseded before they left.", &Sums::leftOut);
    both(
        "orvel_network_bytes_total", "Bytes over all connections.", &Sums::bytesIn,
        &Sums::bytesOut);
    each(
        "orvel_network_waiting_bytes", "gauge", "Bytes that wait to be sent, over all connections.",
        &Sums::waiting);
    each(
        "orvel_network_waiting_bytes_max", "gauge",
        "Bytes that wait for the connection that lags most.", &Sums::mostWaiting);
    each(
        "orvel_network_kept_bytes", "gauge", "Memory in use for what waits to be sent.",
        &Sums::kept);
    each(
        "orvel_network_ignored_datagrams_total", "counter",
        "Discovery datagrams that made no sense.", &Sums::ignored);
}

/// How servers keep their players' times, by peer.
void writeTimings(Metrics& metrics, const Orvel::World& world) {
    struct Row {
        const char* name;
        const char* type;
        const char* help;
        double (*value)(const Corvid::Communicator::Timing&);
    };
    using Timing = Corvid::Communicator::Timing;
    static constexpr Row kRows[] = {
        {"orvel_clock_offset_seconds", "gauge", "The player's clock minus the server's.",
         [](const Timing& t) { return static_cast<double>(t.clock.offset) * 1e-9; }},
        {"orvel_clock_error_seconds", "gauge", "The offset is right to within this.",
         [](const Timing& t) { return t.clock.error; }},
        {"orvel_clock_drift", "gauge", "By how much the player's clock runs faster, as a fraction.",
         [](const Timing& t) { return t.clock.drift; }},
        {"orvel_clock_round_trip_seconds", "gauge", "The shortest of the latest measurements.",
         [](const Timing& t) { return t.clock.roundTrip; }},
        {"orvel_batches_total", "counter", "Changes with a time of their own.",
         [](const Timing& t) { return static_cast<double>(t.batches); }},
        {"orvel_late_batches_total", "counter", "Those that came too late for their time.",
         [](const Timing& t) { return static_cast<double>(t.lateBatches); }},
        {"orvel_scene_age_seconds", "gauge", "Seconds since the latest change.",
         [](const Timing& t) { return t.sceneAge; }}};
    constexpr std::size_t kMaxPeers = 64;
    std::vector<std::tuple<std::string, std::string, Timing>> timings;
    for (const NetworkEnd& end : readNetwork(world)) {
        for (const auto& connection : end.counters.connections) {
            if (connection.timing.batches > 0 && timings.size() < kMaxPeers) {
                timings.emplace_back(end.role, connection.peer, connection.timing);
            }
        }
    }
    if (timings.empty()) {
        return;
    }
    for (const Row& row : kRows) {
        metrics.metric(row.name, row.type, row.help);
        for (const auto& [role, peer, timing] : timings) {
            metrics.sample(row.value(timing), {{"role", role}, {"peer", peer}});
        }
    }
}

} // namespace

std::string metricsText(MonitorBackend& monitor) {
    Metrics metrics;
    metrics.metric("orvel_info", "gauge", "Always 1; the version as a label.");
    metrics.sample(1, {{"version", Orvel::version()}});
    metrics.metric("orvel_uptime_seconds", "gauge", "Seconds since the monitor was added.");
    metrics.sample(monitor.seconds());
    metrics.metric("orvel_updates_total", "counter", "Turns of the frame loop.");
    metrics.sample(monitor.updates());
    writeScene(metrics, monitor.world());
    writeSound(metrics, monitor.world());
    metrics.metric("orvel_changes_total", "counter", "Changes of the scene.");
    for (std::size_t i = 0; i < kChangeNames.size(); ++i) {
        metrics.sample(
            monitor.rates().total(static_cast<ChangeKind>(i)), {{"kind", kChangeNames[i]}});
    }
    writeNetwork(metrics, monitor.world());
    writeTimings(metrics, monitor.world());
    return metrics.take();
}

} // namespace Show
