#include <Orvel/orvel.h>

#include <Config/Param.h>
#include <Corvid/InetAddress.h>
#include <Corvid/Keys.h>
#include <Corvid/MultiServer.h>
#include <Corvid/URL.h>
#include <Corvid/URLImpl.h>
#include <Orvel/BackendFactory.h>
#include <Orvel/BackendState.h>
#include <Orvel/BackendType.h>
#include <Orvel/CommandEvent.h>
#include <Orvel/Diagnostic.h>
#include <Orvel/Emitter.h>
#include <Orvel/Log.h>
#include <Orvel/OALLoopbackBackend.h>
#include <Orvel/OwningWorld.h>
#include <Orvel/SceneEdits.h>
#include <Orvel/Server.h>
#include <Orvel/SoundFile.h>
#include <Orvel/Source.h>
#include <Orvel/Version.h>
#include <Orvel/VoicesBackend.h>
#include <Orvel/World.h>
#include <Orvel/detail/CCalls.h>
#include <Orvel/detail/Handles.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <exception>
#include <limits>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

// NOLINTBEGIN(readability-identifier-naming): as is usual in C

namespace {

using Corvid::Keys;
using Orvel::Backend;
using Orvel::Emitter;
using Orvel::Log;
using Orvel::OALBackend;
using Orvel::OALLoopbackBackend;
using Orvel::Quaternion;
using Orvel::Source;
using Orvel::Vec3f;
using Orvel::VoicesBackend;
using Orvel::World;
using Orvel::WorldPart;

constexpr double kLongestWait = 3600.0; // prevents overflow of the clock

thread_local std::string lastError;
thread_local std::string kindList;
thread_local std::string deviceName;
thread_local std::string pageUrl;
thread_local std::string kindName;
thread_local std::string soundUrl;
thread_local std::string labelList;
thread_local std::string groupText;
thread_local std::string interfaceList;
thread_local std::string keyList;

using Orvel::detail::Callback;
using Orvel::detail::CallingBack;
using Orvel::detail::done;
using Orvel::detail::guarded;
using Orvel::detail::HandleOwner;
using Orvel::detail::Kind;
using Orvel::detail::live;
using Orvel::detail::need;
using Orvel::detail::OwnHandle;
using Orvel::detail::Refusal;
using Orvel::detail::refuseInCallback;

/// A world with handles for itself and its parts. Destroys its attachments and parts.
template <class Base>
class HandledWorld : public Orvel::OwningWorld<Base>, public HandleOwner {
public:
    using Orvel::OwningWorld<Base>::OwningWorld;
    HandledWorld() = default;
    HandledWorld(const HandledWorld&) = delete;
    HandledWorld& operator=(const HandledWorld&) = delete;
    ~HandledWorld() override {
        handle_.leave();
        dropAttachments();
        Base::clearWorld();
        Base::deleteAllBackends();
    }
    void destroySource(Source& source) override {
        Base::destroySource(source);
        drop(&source);
    }
    void destroyEmitter(Emitter& emitter) override {
        Base::destroyEmitter(emitter);
        drop(&emitter);
    }
    [[nodiscard]] orvel_world* handle() const { return handle_.template as<orvel_world>(); }

private:
    OwnHandle handle_{static_cast<World*>(this), Kind::World};
};
using OwnedWorld = HandledWorld<World>;

/// A server that notifies its owner of resets. The owner creates the sources: clients only start
/// and stop using them.
class PolledServer : public HandledWorld<Orvel::Server> {
public:
    using HandledWorld::HandledWorld;
    PolledServer() = default;
    PolledServer(const PolledServer&) = delete;
    PolledServer& operator=(const PolledServer&) = delete;
    ~PolledServer() override { server_.leave(); }

    [[nodiscard]] orvel_server* server() const { return server_.as<orvel_server>(); }
    void resetWorld() override {
        Server::resetWorld();
        if (callback_ != nullptr) {
            const CallingBack running(Callback::Reset);
            callback_(server(), user_);
        }
    }
    void setCallback(orvel_reset_callback callback, void* user) {
        callback_ = callback;
        user_ = user;
    }

protected:
    bool interceptEvent(Corvid::Event& event, Corvid::Communicator& /*from*/) override {
        const auto* command = dynamic_cast<const Orvel::CommandEvent*>(&event);
        if (command == nullptr || (command->command != Orvel::CmdCreateSource &&
                                   command->command != Orvel::CmdDestroySource)) {
            return false;
        }
        Source* source = getSource(command->objectId);
        if (source != nullptr && command->command == Orvel::CmdDestroySource) {
            // Restores the initial state; its emitters keep their states, as elsewhere.
            while (!source->connectedEmitters().empty()) {
                source->connectedEmitters().begin()->second->setSource(nullptr);
            }
            source->setState(Source::STOP);
            source->setParam(false, 1.0F);
        }
        return source != nullptr;
    }

private:
    orvel_reset_callback callback_ = nullptr;
    void* user_ = nullptr;
    OwnHandle server_{this, Kind::Server};
};

World& get(orvel_world* world) {
    return live<World>(world, Kind::World);
}

Source& get(orvel_source* source) {
    return live<Source>(source, Kind::Source);
}

Emitter& get(orvel_emitter* emitter) {
    return live<Emitter>(emitter, Kind::Emitter);
}

Backend& get(orvel_backend* backend) {
    return live<Backend>(backend, Kind::Backend);
}

PolledServer& get(orvel_server* server) {
    return live<PolledServer>(server, Kind::Server);
}

/// The handle of a part or back end in a world; null for null.
template <class Handle>
Handle* handle(World& world, void* object, Kind kind) {
    return object == nullptr
               ? nullptr
               : static_cast<Handle*>(dynamic_cast<HandleOwner&>(world).handleOf(object, kind));
}

/// Calls a function with the back end, which must be one that renders offline.
template <class Function>
auto renderer(orvel_backend* backend, Function function) {
    Backend& any = get(backend);
    if (auto* loopback = dynamic_cast<OALLoopbackBackend*>(&any)) {
        return function(*loopback);
    }
    if (auto* voices = dynamic_cast<VoicesBackend*>(&any); voices && voices->isOffline()) {
        return function(*voices);
    }
    throw Refusal("the back end does not render offline; the kind \"loopback\" does, and "
                  "\"voices\" with the parameter \"offline=yes\"");
}

/// Stores the first `count` ids; returns the number of all.
size_t store(const std::vector<int>& from, int* ids, size_t count) {
    if (count != 0) {
        std::copy_n(from.begin(), std::min(count, from.size()), need(ids, "the place for the ids"));
    }
    return from.size();
}

Vec3f vector(const float* values) {
    return {values[0], values[1], values[2]};
}

Quaternion quaternion(const float* values) {
    return {values[0], values[1], values[2], values[3]};
}

void write(const Vec3f& from, const Quaternion& rotation, float* position, float* orientation) {
    if (position != nullptr) {
        std::ranges::copy(std::array{from.x, from.y, from.z}, position);
    }
    if (orientation != nullptr) {
        std::ranges::copy(std::array{rotation.x, rotation.y, rotation.z, rotation.w}, orientation);
    }
}

/// Stores the first `count` ids of a world's parts; returns the number of parts.
template <class Part>
std::size_t writeIds(const std::map<int, Part*>& parts, int* ids, std::size_t count) {
    if (count != 0) {
        need(ids, "the place for the ids");
        for (const auto& [id, part] : parts) {
            if (count-- == 0) {
                break;
            }
            *ids++ = id;
        }
    }
    return parts.size();
}

/// Stores a value where the caller wants to know it.
template <class Value>
void store(Value* place, const Value& value) {
    if (place != nullptr) {
        *place = value;
    }
}

WorldPart::State state(int value) {
    if (value < ORVEL_NONE || value > ORVEL_STOP) {
        throw Refusal(
            "there is no state " + std::to_string(value) +
            "; use ORVEL_NONE, ORVEL_PLAY, ORVEL_PAUSE or ORVEL_STOP");
    }
    return static_cast<WorldPart::State>(value);
}

std::string kinds(const char* separator) {
    OALLoopbackBackend::registerType();
    VoicesBackend::registerType();
    std::string list;
    for (const std::string& name : Orvel::BackendFactory::names()) {
        list += (list.empty() ? "" : separator) + name;
    }
    return list;
}

/// Fails with this problem, unless it is empty.
void refuseIf(const std::string& problem) {
    if (!problem.empty()) {
        throw Refusal(problem);
    }
}

/// The result of a function that returns a text: `kept`, which is set to that of the body; empty on
/// failure.
template <class Body>
const char* text(const char* function, std::string& kept, Body body) noexcept {
    return done(function, [&] { kept = body(); }) ? kept.c_str() : "";
}

std::string joined(const std::vector<std::string>& names) {
    std::string list;
    for (const std::string& name : names) {
        list += (list.empty() ? "" : ",") + name;
    }
    return list;
}

/// A sink for a host whose log has a callback: events that are no failures and have lines on the
/// standard streams become lines of the log, for debugging.
bool logEvents(const Orvel::Diagnostic& diagnostic) {
    using Code = Orvel::Diagnostic::Code;
    if (diagnostic.code != Code::Loading && diagnostic.code != Code::SoundSet &&
        diagnostic.code != Code::ReceiveEnded) {
        return false;
    }
    const Log::Site site{
        Log::Level::Debug, Orvel::LogModuleName, __FILE__, __LINE__, __PRETTY_FUNCTION__};
    Log::the().write(site, "%s %s\n", diagnostic.text.c_str(), diagnostic.subject.c_str());
    return true;
}

std::string idIsTaken(const char* part, int id) {
    return id == 0 ? "no ids are left"
                   : std::string("there is already ") + part + " with the id " +
                         std::to_string(id) + "; take another one, or 0 for the next free one";
}

} // namespace

const char* orvel_version(void) {
    return Orvel::version();
}

const char* orvel_last_error(void) {
    return lastError.c_str();
}

void orvel_set_last_error(const char* text) {
    try {
        lastError = text == nullptr ? "" : text;
    } catch (...) {
        lastError.clear(); // no memory for the text
    }
}

bool orvel_log_set_callback(orvel_log_callback callback, void* user) {
    return done(__func__, [&] {
        if (callback == nullptr) {
            Log::the().setCallback({});
            Orvel::setDiagnosticSink({});
            return;
        }
        Log::the().setCallback([callback, user](Log::Level level, std::string_view text) {
            const CallingBack running(Callback::Report);
            callback(static_cast<orvel_level>(level), std::string(text).c_str(), user);
        });
        Orvel::setDiagnosticSink(&logEvents);
    });
}

bool orvel_log_set_level(int level) {
    return done(__func__, [&] {
        if (level < ORVEL_LEVEL_LOG || level > ORVEL_LEVEL_DEBUG) {
            throw Refusal(
                "there is no level " + std::to_string(level) +
                "; use one from ORVEL_LEVEL_LOG to ORVEL_LEVEL_DEBUG");
        }
        Log::the().setLevel(static_cast<Log::Level>(level));
    });
}

int orvel_log_level(void) {
    return static_cast<int>(Log::the().level());
}

bool orvel_is_alive(const void* handle) {
    return Orvel::detail::isHandle(handle);
}

orvel_world* orvel_world_create(void) {
    return guarded(
        __func__, static_cast<orvel_world*>(nullptr), [] { return (new OwnedWorld)->handle(); });
}

bool orvel_world_destroy(orvel_world* world) {
    return done(__func__, [&] {
        if (world == nullptr) {
            return;
        }
        if (dynamic_cast<PolledServer*>(&get(world)) != nullptr) {
            throw Refusal("this world belongs to a server; use orvel_server_destroy");
        }
        refuseInCallback();
        delete &get(world);
    });
}

bool orvel_world_update(orvel_world* world) {
    return guarded(__func__, false, [&] { return get(world).update(); });
}

bool orvel_world_clear(orvel_world* world) {
    return done(__func__, [&] {
        World& scene = get(world);
        refuseInCallback(Callback::Reset);
        scene.clearWorld();
    });
}

bool orvel_world_set_enabled(orvel_world* world, bool enabled) {
    return done(__func__, [&] { get(world).setEnabled(enabled); });
}

bool orvel_world_enabled(orvel_world* world) {
    return guarded(__func__, false, [&] { return get(world).enabled(); });
}

bool orvel_world_set_spatialize(orvel_world* world, bool spatialize) {
    return done(__func__, [&] { get(world).setSpatialize(spatialize); });
}

bool orvel_world_spatialize(orvel_world* world) {
    return guarded(__func__, false, [&] { return get(world).spatialize(); });
}

bool orvel_world_set_listener(orvel_world* world, const float* position, const float* rotation) {
    return done(__func__, [&] {
        World& scene = get(world);
        scene.setListenerTransform(
            position == nullptr ? scene.listenerPosition() : vector(position),
            rotation == nullptr ? scene.listenerRotation() : quaternion(rotation));
    });
}

bool orvel_world_listener(orvel_world* world, float* position, float* rotation) {
    return done(__func__, [&] {
        World& scene = get(world);
        write(scene.listenerPosition(), scene.listenerRotation(), position, rotation);
    });
}

size_t orvel_world_source_count(orvel_world* world) {
    return guarded(__func__, size_t{0}, [&] { return get(world).sources().size(); });
}

size_t orvel_world_emitter_count(orvel_world* world) {
    return guarded(__func__, size_t{0}, [&] { return get(world).emitters().size(); });
}

size_t orvel_world_source_ids(orvel_world* world, int* ids, size_t count) {
    return guarded(__func__, size_t{0}, [&] { return writeIds(get(world).sources(), ids, count); });
}

size_t orvel_world_emitter_ids(orvel_world* world, int* ids, size_t count) {
    return guarded(
        __func__, size_t{0}, [&] { return writeIds(get(world).emitters(), ids, count); });
}

const char* orvel_backend_kinds(void) {
    return text(__func__, kindList, [] { return kinds("\n"); });
}

orvel_backend* orvel_world_add_backend(orvel_world* world, const char* kind, const char* params) {
    return guarded(__func__, static_cast<orvel_backend*>(nullptr), [&] {
        need(kind, "the kind");
        const std::string known = kinds(", "); // also registers "loopback"
        Backend* backend = get(world).addBackend(kind, params);
        if (backend == nullptr) {
            throw Refusal(
                "could not create a back end of the kind \"" + std::string(kind) +
                "\"; the kinds are default, " + known);
        }
        return handle<orvel_backend>(get(world), backend, Kind::Backend);
    });
}

bool orvel_backend_destroy(orvel_backend* backend) {
    return done(__func__, [&] {
        Backend& last = get(backend);
        refuseInCallback();
        dynamic_cast<HandleOwner&>(last.world()).drop(&last);
        delete &last;
    });
}

const char* orvel_backend_kind(orvel_backend* backend) {
    return text(__func__, kindName, [&] {
        const Orvel::BackendType* type = get(backend).type();
        return type == nullptr ? std::string() : type->name();
    });
}

bool orvel_backend_working(orvel_backend* backend) {
    return guarded(__func__, false, [&] { return get(backend).state().working; });
}

const char* orvel_backend_device(orvel_backend* backend) {
    return text(__func__, deviceName, [&] { return get(backend).state().device; });
}

const char* orvel_backend_page(orvel_backend* backend) {
    return text(__func__, pageUrl, [&] { return get(backend).state().page; });
}

size_t orvel_backend_voices(orvel_backend* backend, size_t* allowed) {
    return guarded(__func__, size_t{0}, [&] {
        const auto state = get(backend).state();
        store(allowed, state.voicesAllowed);
        return state.voicesUsed;
    });
}

size_t orvel_backend_refused(orvel_backend* backend, int* ids, size_t count) {
    return guarded(__func__, size_t{0}, [&] {
        return store(get(backend).state().refusedEmitters, ids, count);
    });
}

size_t orvel_backend_waiting(orvel_backend* backend, int* ids, size_t count) {
    return guarded(__func__, size_t{0}, [&] {
        return store(get(backend).state().waitingEmitters, ids, count);
    });
}

size_t orvel_backend_emitters(
    orvel_backend* backend, int* ids, int* hearings, float* levels, size_t count) {
    return guarded(__func__, size_t{0}, [&] {
        const auto emitters = get(backend).state().emitters;
        for (std::size_t i = 0; i < std::min(count, emitters.size()); ++i) {
            store(ids == nullptr ? nullptr : ids + i, emitters[i].id);
            const int hearing = static_cast<int>(emitters[i].hearing);
            store(hearings == nullptr ? nullptr : hearings + i, hearing);
            store(levels == nullptr ? nullptr : levels + i, emitters[i].level);
        }
        return emitters.size();
    });
}

size_t orvel_backend_streams(orvel_backend* backend, uint64_t* gaps) {
    return guarded(__func__, size_t{0}, [&] {
        const auto state = get(backend).state();
        store(gaps, state.gaps);
        return state.streams;
    });
}

const char* orvel_backend_device_state(orvel_backend* backend) {
    return guarded(__func__, static_cast<const char*>(nullptr), [&] {
        return Orvel::nameOf(get(backend).state().deviceState);
    });
}

bool orvel_backend_latency(orvel_backend* backend, double* seconds) {
    return guarded(__func__, false, [&] {
        const auto latency = get(backend).state().latency;
        store(seconds, latency.value_or(0.0));
        return latency.has_value();
    });
}

size_t orvel_backend_connections(orvel_backend* backend) {
    return guarded(__func__, size_t{0}, [&] {
        const auto network = get(backend).state().network;
        return network ? network->counters.connections.size() : 0;
    });
}

bool orvel_backend_render(orvel_backend* backend, float* samples, unsigned frames) {
    return done(__func__, [&] {
        float* to = need(samples, "the buffer for the samples");
        if (!renderer(backend, [&](auto& from) { return from.render(to, frames); })) {
            throw Refusal("OpenAL gave no loopback device; check the installation of OpenAL Soft");
        }
    });
}

unsigned orvel_backend_rate(orvel_backend* backend) {
    return guarded(
        __func__, 0U, [&] { return renderer(backend, [](auto& from) { return from.rate(); }); });
}

orvel_source* orvel_source_create(orvel_world* world, int id) {
    return guarded(__func__, static_cast<orvel_source*>(nullptr), [&] {
        Source* source = get(world).createSource(id);
        if (source == nullptr) {
            throw Refusal(idIsTaken("a source", id));
        }
        return handle<orvel_source>(get(world), source, Kind::Source);
    });
}

orvel_source* orvel_source_find(orvel_world* world, int id) {
    return guarded(__func__, static_cast<orvel_source*>(nullptr), [&] {
        World& scene = get(world);
        return handle<orvel_source>(scene, scene.getSource(id), Kind::Source);
    });
}

bool orvel_source_destroy(orvel_source* source) {
    return done(__func__, [&] {
        Source& last = get(source);
        refuseInCallback(Callback::Reset);
        Orvel::destroy(last);
    });
}

int orvel_source_id(orvel_source* source) {
    return guarded(__func__, 0, [&] { return get(source).id(); });
}

bool orvel_source_set_data(
    orvel_source* source, unsigned rate, unsigned bits, unsigned channels, const void* data,
    size_t size) {
    return done(__func__, [&] {
        Source& sound = get(source);
        if (size != 0) {
            need(data, "the data");
            if (rate == 0 || (bits != 8 && bits != 16) || (channels != 1 && channels != 2)) {
                throw Refusal(
                    "the format is " + std::to_string(rate) + " Hz, " + std::to_string(bits) +
                    " bit, " + std::to_string(channels) +
                    " channels; use 8 or 16 bit, 1 or 2 channels, and a rate above 0");
            }
            const std::size_t frame = std::size_t{channels} * (bits / 8);
            if (size > std::numeric_limits<unsigned>::max() || size % frame != 0) {
                throw Refusal(
                    std::to_string(size) +
                    " bytes are not a whole number of frames below 4 GiB; the size is in bytes");
            }
        }
        Orvel::changeSound(sound, [&](Source& free) {
            free.setData(
                rate, bits, channels, static_cast<const unsigned char*>(data),
                static_cast<unsigned>(size));
        });
    });
}

bool orvel_source_set_url(orvel_source* source, const char* url) {
    return done(__func__, [&] {
        Source& sound = get(source);
        try {
            const Corvid::URL valid(need(url, "the URL")); // throws before anything changes
            Orvel::changeSound(sound, [&](Source& free) { free.setDataFromURL(url); });
        } catch (const Corvid::URLImpl::Exception& fault) {
            throw Refusal(std::string(fault.what()) + " \"" + url + "\"; use a path or an URL");
        }
        OALBackend::reportRefusedSound(sound);
    });
}

bool orvel_source_set_file(orvel_source* source, const char* path, bool keep_channels) {
    return done(__func__, [&] {
        using Orvel::SoundFile;
        Source& sound = get(source);
        SoundFile file(need(path, "the path"));
        const auto pcm =
            file.decode(keep_channels ? SoundFile::Channels::Keep : SoundFile::Channels::Mono);
        if (!pcm) {
            throw Refusal(file.error());
        }
        Orvel::changeSound(sound, [&](Source& free) { pcm->giveTo(free); });
    });
}

const void* orvel_source_data(
    orvel_source* source, unsigned* rate, unsigned* bits, unsigned* channels, size_t* size) {
    return guarded(__func__, static_cast<const void*>(nullptr), [&]() -> const void* {
        const Source& sound = get(source);
        const bool has = sound.dataKind() == Source::PCM_SD;
        store(rate, has ? sound.sampleRate() : 0U);
        store(bits, has ? sound.bitsPerSample() : 0U);
        store(channels, has ? sound.channels() : 0U);
        store(size, has ? sound.data().size() : 0U);
        return has && !sound.data().empty() ? sound.data().data() : nullptr;
    });
}

const char* orvel_source_url(orvel_source* source) {
    return text(__func__, soundUrl, [&] {
        const Source& sound = get(source);
        const bool has = sound.dataKind() == Source::URL_SD && sound.url() != nullptr;
        return has ? sound.url()->text() : std::string();
    });
}

bool orvel_source_set_param(orvel_source* source, bool loop, float pitch) {
    return done(__func__, [&] { get(source).setParam(loop, pitch); });
}

bool orvel_source_loop(orvel_source* source) {
    return guarded(__func__, false, [&] { return get(source).loop(); });
}

float orvel_source_pitch(orvel_source* source) {
    return guarded(__func__, 0.0F, [&] { return get(source).pitch(); });
}

bool orvel_source_set_state(orvel_source* source, int newState) {
    return done(__func__, [&] { get(source).setState(state(newState)); });
}

orvel_state orvel_source_state(orvel_source* source) {
    return guarded(
        __func__, ORVEL_NONE, [&] { return static_cast<orvel_state>(get(source).state()); });
}

float orvel_source_duration(orvel_source* source) {
    return guarded(__func__, 0.0F, [&] { return get(source).duration(); });
}

orvel_emitter* orvel_emitter_create(orvel_world* world, const char* labels, int id) {
    return guarded(__func__, static_cast<orvel_emitter*>(nullptr), [&] {
        Emitter* emitter =
            get(world).createEmitter(Config::splitList(labels == nullptr ? "" : labels), id);
        if (emitter == nullptr) {
            throw Refusal(idIsTaken("an emitter", id));
        }
        return handle<orvel_emitter>(get(world), emitter, Kind::Emitter);
    });
}

orvel_emitter* orvel_emitter_find(orvel_world* world, int id) {
    return guarded(__func__, static_cast<orvel_emitter*>(nullptr), [&] {
        World& scene = get(world);
        return handle<orvel_emitter>(scene, scene.getEmitter(id), Kind::Emitter);
    });
}

bool orvel_emitter_destroy(orvel_emitter* emitter) {
    return done(__func__, [&] {
        Emitter& last = get(emitter);
        refuseInCallback(Callback::Reset);
        delete &last;
    });
}

int orvel_emitter_id(orvel_emitter* emitter) {
    return guarded(__func__, 0, [&] { return get(emitter).id(); });
}

const char* orvel_emitter_labels(orvel_emitter* emitter) {
    return text(__func__, labelList, [&] { return joined(get(emitter).labels()); });
}

bool orvel_emitter_set_transform(
    orvel_emitter* emitter, const float* position, const float* rotation) {
    return done(__func__, [&] {
        const Vec3f place = position == nullptr ? Vec3f{} : vector(position);
        const Quaternion turn = rotation == nullptr ? Quaternion{} : quaternion(rotation);
        get(emitter).setTransform(
            position == nullptr ? nullptr : &place, rotation == nullptr ? nullptr : &turn);
    });
}

bool orvel_emitter_transform(orvel_emitter* emitter, float* position, float* rotation) {
    return done(__func__, [&] {
        write(get(emitter).position(), get(emitter).rotation(), position, rotation);
    });
}

bool orvel_emitter_set_hull(
    orvel_emitter* emitter, float max_back, float max_front, float min_back, float min_front) {
    return done(__func__, [&] { get(emitter).setHull(max_back, max_front, min_back, min_front); });
}

bool orvel_emitter_hull(
    orvel_emitter* emitter, float* max_back, float* max_front, float* min_back, float* min_front) {
    return done(__func__, [&] {
        const Orvel::Hull& hull = get(emitter).hull();
        store(max_back, hull.maxBack);
        store(max_front, hull.maxFront);
        store(min_back, hull.minBack);
        store(min_front, hull.minFront);
    });
}

bool orvel_emitter_set_radius(orvel_emitter* emitter, float radius) {
    return done(__func__, [&] { get(emitter).setRadius(radius); });
}

float orvel_emitter_radius(orvel_emitter* emitter) {
    return guarded(__func__, 0.0F, [&] { return get(emitter).radius(); });
}

bool orvel_emitter_set_param(orvel_emitter* emitter, bool spatial, float value, float gain) {
    return done(__func__, [&] { get(emitter).setParam(spatial, value, gain); });
}

bool orvel_emitter_param(orvel_emitter* emitter, bool* spatial, float* value, float* gain) {
    return done(__func__, [&] {
        const Emitter& place = get(emitter);
        store(spatial, place.paramFlag());
        store(value, place.paramValue());
        store(gain, place.gain());
    });
}

bool orvel_emitter_set_start_offset(orvel_emitter* emitter, double seconds) {
    return done(__func__, [&] { get(emitter).setStartOffset(seconds); });
}

double orvel_emitter_start_offset(orvel_emitter* emitter) {
    return guarded(__func__, 0.0, [&] { return get(emitter).startOffset(); });
}

bool orvel_emitter_set_source(orvel_emitter* emitter, orvel_source* source) {
    return done(__func__, [&] {
        Emitter& place = get(emitter);
        if (source != nullptr && &get(source).world() != &place.world()) {
            throw Refusal("the source belongs to another world; create one in the emitter's world");
        }
        place.setSource(source == nullptr ? nullptr : &get(source));
    });
}

orvel_source* orvel_emitter_source(orvel_emitter* emitter) {
    return guarded(__func__, static_cast<orvel_source*>(nullptr), [&] {
        Emitter& place = get(emitter);
        return handle<orvel_source>(place.world(), place.source(), Kind::Source);
    });
}

bool orvel_emitter_set_state(orvel_emitter* emitter, int newState) {
    return done(__func__, [&] { get(emitter).setState(state(newState)); });
}

orvel_state orvel_emitter_state(orvel_emitter* emitter) {
    return guarded(
        __func__, ORVEL_NONE, [&] { return static_cast<orvel_state>(get(emitter).state()); });
}

orvel_server* orvel_server_create(void) {
    return guarded(__func__, static_cast<orvel_server*>(nullptr), [] {
        auto server = std::make_unique<PolledServer>();
        if (server->multiServer().port() == 0) {
            throw Refusal("cannot listen on a TCP port; the log has the reason");
        }
        return server.release()->server();
    });
}

orvel_server* orvel_server_create_at(const char* address, unsigned short port) {
    return guarded(__func__, static_cast<orvel_server*>(nullptr), [&] {
        const std::string host = address == nullptr ? "" : address;
        if (!host.empty() && !Corvid::InetAddress::getByAddress(host).isValid()) {
            throw Refusal("\"" + host + "\" is no IPv4 address; use one of this machine's");
        }
        auto server = std::make_unique<PolledServer>(host, port);
        if (server->multiServer().port() == 0) {
            throw Refusal(
                "cannot listen on port " + std::to_string(port) +
                (host.empty() ? "" : " of " + host) +
                "; use a free port, 0 for any, and an address of this machine");
        }
        return server.release()->server();
    });
}

bool orvel_server_destroy(orvel_server* server) {
    return done(__func__, [&] {
        if (server != nullptr) {
            const PolledServer& last = get(server);
            refuseInCallback();
            delete &last;
        }
    });
}

orvel_world* orvel_server_world(orvel_server* server) {
    return guarded(
        __func__, static_cast<orvel_world*>(nullptr), [&] { return get(server).handle(); });
}

bool orvel_server_set_reset_callback(
    orvel_server* server, orvel_reset_callback callback, void* user) {
    return done(__func__, [&] { get(server).setCallback(callback, user); });
}

bool orvel_server_set_id(orvel_server* server, const char* text) {
    return done(__func__, [&] { get(server).setId(need(text, "the text")); });
}

int orvel_server_id(orvel_server* server) {
    return guarded(__func__, 0, [&] { return int{get(server).id()}; });
}

bool orvel_server_set_multicast(
    orvel_server* server, const char* group, unsigned short port, int ttl) {
    return done(__func__, [&] {
        PolledServer& world = get(server);
        const auto address = Corvid::InetAddress::getByAddress(need(group, "the group"));
        if (!address.isMulticast() || port == 0 || ttl < 0 || ttl > 255) {
            throw Refusal(
                "cannot search through " + std::string(group) + ", port " + std::to_string(port) +
                ", TTL " + std::to_string(ttl) +
                "; use an address from 224.0.0.0 to 239.255.255.255, a port above 0, and a TTL up "
                "to 255");
        }
        world.setMulticastAddress(address);
        world.setMulticastPort(port);
        world.setMulticastTtl(ttl);
    });
}

const char* orvel_server_multicast(orvel_server* server, unsigned short* port, int* ttl) {
    return text(__func__, groupText, [&] {
        const PolledServer& world = get(server);
        store(port, world.multicastPort());
        store(ttl, world.multicastTtl());
        return world.multicastAddress().text();
    });
}

bool orvel_server_set_keys(orvel_server* server, const char* path) {
    return done(__func__, [&] {
        const std::string file = need(path, "the path");
        if (!get(server).setKeys(file)) {
            Keys keys;
            const std::string problem = keys.load(file);
            throw Refusal(problem.empty() ? file + " has no keys" : problem);
        }
    });
}

bool orvel_server_set_interfaces(orvel_server* server, const char* interfaces) {
    return done(__func__, [&] {
        PolledServer& world = get(server);
        std::vector<Corvid::InetAddress> addresses;
        std::vector<std::string> names;
        for (const std::string& text :
             Config::splitList(need(interfaces, "the list of interfaces"))) {
            if (!Corvid::Multicast::readInterface(text, addresses, names)) {
                throw Refusal(
                    "\"" + text +
                    "\" is neither the IPv4 address nor the name of an interface; use one such as "
                    "127.0.0.1 or lo");
            }
        }
        world.multiServer().multicast().setInterfaces(std::move(addresses), std::move(names));
    });
}

const char* orvel_server_interfaces(orvel_server* server) {
    return text(__func__, interfaceList, [&] {
        const auto used = get(server).multiServer().multicast().settings();
        std::vector<std::string> names;
        for (const Corvid::InetAddress& address : used.interfaces) {
            names.push_back(address.text());
        }
        names.insert(names.end(), used.interfaceNames.begin(), used.interfaceNames.end());
        return joined(names);
    });
}

unsigned short orvel_server_port(orvel_server* server) {
    return guarded(
        __func__, static_cast<unsigned short>(0), [&] { return get(server).multiServer().port(); });
}

size_t orvel_server_clients(orvel_server* server) {
    return guarded(__func__, size_t{0}, [&] {
        return get(server).multiServer().counters().connections.size();
    });
}

int orvel_server_poll(orvel_server* server, double seconds) {
    return guarded(__func__, -1, [&] {
        PolledServer& world = get(server);
        refuseInCallback();
        if (!(seconds >= 0.0)) {
            throw Refusal("the time to wait must be at least 0, in seconds");
        }
        if (seconds > 0.0) {
            world.multiServer().waitForCommunicators(
                std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                    std::chrono::duration<double>(std::min(seconds, kLongestWait))));
        }
        return world.receive(false);
    });
}

bool orvel_keys_new(const char* path, const char* name) {
    return done(__func__, [&] {
        refuseIf(Keys::makeFile(need(path, "the path"), need(name, "the name")));
    });
}

bool orvel_keys_grant(const char* path, const char* name, const char* right, const char* output) {
    return done(__func__, [&] {
        const std::string wanted = need(right, "the right");
        if (wanted != "drive" && wanted != "watch") {
            throw Refusal("the right must be \"drive\" or \"watch\", found \"" + wanted + "\"");
        }
        Keys one;
        refuseIf(Keys::grantIn(
            need(path, "the path"), need(name, "the name"),
            wanted == "drive" ? Keys::Right::Drive : Keys::Right::Watch, need(output, "the output"),
            one));
    });
}

bool orvel_keys_revoke(const char* path, const char* name) {
    return done(__func__, [&] {
        refuseIf(Keys::revokeIn(need(path, "the path"), need(name, "the name")));
    });
}

const char* orvel_keys_list(const char* path) {
    return guarded(__func__, static_cast<const char*>(nullptr), [&] {
        Keys keys;
        refuseIf(keys.load(need(path, "the path")));
        keyList.clear();
        for (const Keys::Key& key : keys.all()) {
            keyList += Keys::nameOf(key.right) + (' ' + key.id) + ' ' + key.name + '\n';
        }
        return keyList.c_str();
    });
}

// NOLINTEND(readability-identifier-naming)
