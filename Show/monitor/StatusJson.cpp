#include <Show/monitor/StatusJson.h>

#include <Show/monitor/JsonWriter.h>
#include <Show/monitor/MonitorBackend.h>

#include <Orvel/BackendState.h>
#include <Orvel/BackendType.h>
#include <Orvel/Version.h>
#include <Orvel/World.h>

#include <algorithm>
#include <chrono>

namespace Show {

namespace {

constexpr std::size_t kIdsShown = 100; // of a back end's emitters

/// Seconds since 1970.
double unixTime(std::chrono::system_clock::time_point when) {
    return std::chrono::duration<double>(when.time_since_epoch()).count();
}

void writeIds(JsonWriter& json, const std::vector<int>& ids) {
    for (std::size_t i = 0; i < std::min(ids.size(), kIdsShown); ++i) {
        json.value(ids[i]);
    }
}

void writeBackends(JsonWriter& json, const Orvel::World& world) {
    json.key("backends").open('[');
    for (Orvel::Backend* backend : world.backends()) {
        if (!MonitorBackend::isListed(*backend)) {
            continue;
        }
        const Orvel::BackendType* type = backend->type();
        json.open('{').field("kind", type == nullptr ? "" : type->name());
        const Orvel::BackendState state = backend->state();
        json.field("working", state.working).field("device", state.device);
        json.field("deviceState", nameOf(state.deviceState)).key("latency");
        if (state.latency) {
            json.value(*state.latency);
        } else {
            json.null();
        }
        json.field("page", state.page).field("failures", state.failures);
        json.field("voicesUsed", state.voicesUsed).field("voicesAllowed", state.voicesAllowed);
        json.field("refused", state.refusedEmitters.size()).key("refusedEmitters").open('[');
        writeIds(json, state.refusedEmitters);
        json.close(']').field("waiting", state.waitingEmitters.size());
        json.key("waitingEmitters").open('[');
        writeIds(json, state.waitingEmitters);
        json.close(']').field("streams", state.streams).field("gaps", state.gaps);
        json.field("enabled", backend->enabled()).key("labels").open('[');
        for (const std::string& label : backend->labels()) {
            json.value(label);
        }
        json.close(']').close('}');
    }
    json.close(']');
}

void writeChanges(JsonWriter& json, const ChangeRates& rates) {
    json.key("changes").open('{').key("totals").open('{');
    for (std::size_t i = 0; i < kChangeNames.size(); ++i) {
        json.field(kChangeNames[i], rates.total(static_cast<ChangeKind>(i)));
    }
    json.close('}').key("perSecond").open('{');
    for (std::size_t i = 0; i < kChangeNames.size(); ++i) {
        json.key(kChangeNames[i]).open('[');
        for (const std::uint32_t count : rates.perSecond(static_cast<ChangeKind>(i))) {
            json.value(count);
        }
        json.close(']');
    }
    json.close('}').close('}');
}

void writeHead(JsonWriter& json, const NetworkEnd& end) {
    const auto& c = end.counters;
    json.open('{').field("role", end.role).field("id", end.id).field("port", end.port);
    json.field("connected", c.connected).field("refused", c.refused).field("dropped", c.dropped);
    json.field("eventsIn", c.eventsIn).field("bytesIn", c.bytesIn);
    json.field("eventsOut", c.eventsOut).field("bytesOut", c.bytesOut);
    json.field("eventsLeftOut", c.eventsLeftOut);
    json.field("bytesKept", c.bytesKept).field("datagramsIgnored", c.datagramsIgnored);
    json.key("lastDrops").open('[');
    for (const auto& drop : c.lastDrops) {
        json.open('{').field("peer", drop.peer).field("id", drop.peerId);
        json.field("when", unixTime(drop.when)).field("reason", drop.reason).close('}');
    }
    json.close(']').key("connections").open('[');
}

void write(JsonWriter& json, const Corvid::Communicator::Counters& c) {
    json.open('{').field("peer", c.peer).field("id", c.peerId);
    json.field("since", unixTime(c.connectedSince));
    json.field("eventsIn", c.eventsIn).field("bytesIn", c.bytesIn);
    json.field("eventsOut", c.eventsOut).field("bytesOut", c.bytesOut);
    json.field("eventsLeftOut", c.eventsLeftOut);
    json.field("bytesWaiting", c.bytesWaiting).field("lost", c.lost);
    const auto& timing = c.timing;
    json.field("clockKnown", timing.clock.known);
    if (timing.clock.known) {
        json.field("clockOffset", static_cast<double>(timing.clock.offset) * 1e-9);
        json.field("clockError", timing.clock.error).field("clockDrift", timing.clock.drift);
        json.field("roundTrip", timing.clock.roundTrip).field("jitter", timing.clock.jitter);
    }
    json.field("batches", timing.batches).field("lateBatches", timing.lateBatches);
    json.field("worstLateness", timing.worstLateness).field("sceneAge", timing.sceneAge);
    json.close('}');
}

} // namespace

bool StatusJson::operator()(std::string& more) {
    JsonWriter json(more, continues_);
    if (!headWritten_) {
        headWritten_ = true;
        const Orvel::World& world = monitor_->world();
        json.open('{').field("instance", monitor_->instance()).field("version", Orvel::version());
        json.field("seconds", monitor_->seconds()).field("updates", monitor_->updates());
        json.field("sources", world.sources().size()).field("emitters", world.emitters().size());
        writeBackends(json, world);
        writeChanges(json, monitor_->rates());
        json.key("network").open('[');
    }
    std::size_t left = kConnectionsPerPiece;
    for (; end_ < ends_->size(); ++end_) {
        const NetworkEnd& end = (*ends_)[end_];
        if (!begun_) {
            writeHead(json, end);
            begun_ = true;
        }
        const auto& connections = end.counters.connections;
        for (; connection_ < connections.size(); ++connection_, --left) {
            if (left == 0) {
                continues_ = json.continues();
                return true;
            }
            write(json, connections[connection_]);
        }
        json.close(']').close('}');
        begun_ = false;
        connection_ = 0;
    }
    json.close(']').close('}');
    return false;
}

} // namespace Show
