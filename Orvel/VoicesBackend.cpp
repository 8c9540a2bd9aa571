#include <Orvel/VoicesBackend.h>

#include <Corvid/URL.h>
#include <Orvel/BackendState.h>
#include <Orvel/Emitter.h>
#include <Orvel/Source.h>
#include <Orvel/World.h>
#include <Orvel/detail/KindParams.h>
#include <Orvel/detail/net/PeerLines.h>
#include <Orvel/detail/voices/DeviceThread.h>
#include <Orvel/detail/voices/Motion.h>
#include <Orvel/detail/voices/OpenALSettings.h>
#include <Orvel/detail/voices/Reverb.h>
#include <Orvel/detail/voices/SoundLoader.h>
#include <Orvel/detail/voices/VoiceOutput.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>
#include <system_error>
#include <thread>
#include <unordered_map>
#include <utility>

namespace Orvel {

using detail::SceneChanges;
using detail::SharedEngine;
using detail::Sound;
using detail::Transport;

namespace {

/// The frames between two decisions about what is mixed, offline.
constexpr unsigned kBlockFrames = 512;
/// Frames beyond are years away; products with a position's largest step do not overflow.
constexpr std::int64_t kMaxFrame = std::int64_t{1} << 42U;

bool isFinite(const Vec3f& v) {
    return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

bool isFinite(const Quaternion& q) {
    return std::isfinite(q.x) && std::isfinite(q.y) && std::isfinite(q.z) && std::isfinite(q.w);
}

bool isFinite(const Hull& hull) {
    return std::ranges::all_of(kHullExtents, [&hull](const HullExtent& extent) {
        return std::isfinite(hull.*extent.value);
    });
}

/// Whether a factor can be used; otherwise reports that it is not.
bool isFactor(const char* name, float value, Diagnostic::Part part) {
    if (std::isfinite(value) && value >= 0.0F) {
        return true;
    }
    ORVEL_REPORT_PEER(
        OpenAL, Fatal, detail::about(Diagnostic::Code::OpenAL, part),
        "The %s %g is not used: expected a number from 0 on\n", name, static_cast<double>(value));
    return false;
}

bool accept(bool finite, const char* name, Diagnostic::Part part = {}) {
    if (!finite) {
        ORVEL_REPORT_PEER(
            OpenAL, Fatal, detail::about(Diagnostic::Code::OpenAL, part),
            "The %s is not used: expected finite numbers\n", name);
    }
    return finite;
}

} // namespace

struct VoicesBackend::State {
    /// An emitter that this back end plays.
    struct Slot {
        std::uint32_t number = 0; // see SceneChanges
        Transport transport;
        std::unique_ptr<detail::Motion> motion{}; // if velocities matter
    };
    struct Loading {
        int source = 0; // id
        std::shared_ptr<Sound> sound;
    };

    /// Of playOnce().
    struct ShotSlot {
        Slot slot;
        int source = 0; // id
    };

    std::uint32_t takeNumber() {
        if (freeNumbers.empty()) {
            return nextNumber++;
        }
        const std::uint32_t number = freeNumbers.back();
        freeNumbers.pop_back();
        return number;
    }
    void endShot(int id) {
        if (const auto found = shots.find(id); found != shots.end()) {
            remove(found->second.slot);
            shots.erase(found);
        }
    }
    Slot* find(const Emitter& emitter) {
        const auto found = slots.find(emitter.id());
        return found == slots.end() ? nullptr : &found->second;
    }
    std::shared_ptr<Sound> soundOf(int source) const {
        const auto found = sounds.find(source);
        return found == sounds.end() ? nullptr : found->second;
    }
    void remove(const Slot& slot) {
        shared->changes.change(slot.number, SceneChanges::All, [](auto& values) { values = {}; });
        freeNumbers.push_back(slot.number);
    }
    /// The time of motions, in seconds.
    [[nodiscard]] double now() const {
        return offline ? static_cast<double>(frames) / rate
                       : std::chrono::duration<double>(
                             std::chrono::steady_clock::now().time_since_epoch())
                             .count();
    }
    void change(const Slot& slot, unsigned what, auto&& set) {
        shared->changes.change(slot.number, what, set);
    }

    bool offline = false;
    unsigned rate = 0;
    std::size_t voices = 0;
    Sound::Settings settings;
    const OutputLayout* layout = nullptr; // null if it is not set
    bool doppler = false;
    bool occlusion = false;
    detail::Motion listenerMotion;
    std::shared_ptr<SharedEngine> shared = std::make_shared<SharedEngine>();
    std::unordered_map<int, Slot> slots;     // by emitter
    std::unordered_map<int, ShotSlot> shots; // by number
    int lastShot = 0;
    std::vector<std::uint32_t> freeNumbers;
    std::uint32_t nextNumber = 0;
    std::unordered_map<int, std::shared_ptr<Sound>> sounds; // by source; null without data
    std::vector<Loading> loading;
    std::vector<Loading> streamed; // to report files that turn out to be damaged
    std::function<void(Emitter&)> ended;
    bool saidWaiting = false; // that emitters wait for voices
    std::optional<std::int64_t> startFrame;
    // Offline.
    std::unique_ptr<detail::VoiceOutput> output;
    std::int64_t frames = 0;
    // With a device.
    std::unique_ptr<detail::SoundLoader> loader;
    std::optional<detail::OpenALSettings> openAL; // until the device has been opened once
    std::unique_ptr<detail::DeviceThread> thread;
};

VoicesBackend::VoicesBackend(World& world, const char* params)
    : Backend(world, params), state_(std::make_unique<State>()) {
    State& s = *state_;
    const auto read = detail::readParams(*this->params(), detail::kVoicesParams, "VoicesBackend");
    s.offline = read.flag("offline");
    s.voices = static_cast<std::size_t>(read.number("voices"));
    s.settings.keepChannels = read.flag("keepChannels");
    s.settings.streamFrom = static_cast<double>(read.number("streamFrom"));
    s.rate = static_cast<unsigned>(read.number("rate"));
    if (const std::string name = read.text("output"); !name.empty()) {
        s.layout = findOutputLayout(name);
        if (s.layout == nullptr) {
            std::string names;
            for (const OutputLayout& layout : kOutputLayouts) {
                names += (names.empty() ? "" : ", ") + std::string(layout.name);
            }
            read.refuse("output", name, "one of: " + names);
        }
    }
    const auto doppler = static_cast<float>(read.real("doppler"));
    s.doppler = doppler > 0.0F;
    {
        const Vessa::Lock lock(s.shared->mutex);
        s.shared->engine.setDoppler(doppler);
    }
    std::string reverb = read.text("reverb");
    if (!reverb.empty() && !detail::Reverb::isName(reverb)) {
        read.refuse("reverb", reverb, "the name of a preset, such as concerthall");
        reverb.clear();
    }
    const auto wet = static_cast<float>(read.real("wet"));
    s.occlusion = read.text("value") == "occlusion";
    if (!s.occlusion && !read.text("value").empty()) {
        read.refuse("value", read.text("value"), "occlusion");
    }
    detail::VoiceOutput::Settings output{
        .name = read.text("device"),
        .rate = s.rate,
        .voices = s.voices,
        .latency = static_cast<unsigned>(read.number("latency")),
        .layout = s.layout,
        .hrtf = read.text("hrtf")};
    // OpenAL reads its settings when it is first used, in this process.
    static std::atomic<bool> isFirst{true};
    const bool readsSettings = isFirst.exchange(false);
    if (!s.offline) {
        if (readsSettings && (output.latency > 0 || s.layout != nullptr)) {
            s.openAL.emplace(output.latency, s.rate, s.layout);
        }
        s.loader = std::make_unique<detail::SoundLoader>();
        try {
            output.rate = read.isSet("rate") ? s.rate : 0;
            s.thread = std::make_unique<detail::DeviceThread>(
                s.shared, detail::DeviceThread::Settings{output, reverb, wet});
        } catch (const std::system_error& fault) {
            ORVEL_REPORT(
                Fatal, detail::about(Diagnostic::Code::Thread, {}, {}, fault.what()),
                "The sound device has no thread: %s\n", fault.what());
            const Vessa::Lock lock(s.shared->mutex);
            s.shared->device = SharedEngine::Device::Absent;
        }
        return;
    }
    s.output = detail::VoiceOutput::openOffline(output);
    if (s.output == nullptr) {
        return;
    }
    if (!s.output->problem().empty()) {
        ORVEL_REPORT(
            Fatal, detail::about(Diagnostic::Code::Parameter, {}, "hrtf"), "VoicesBackend: %s\n",
            s.output->problem().c_str());
    }
    const Vessa::Lock lock(s.shared->mutex);
    const detail::VoiceOutput::Use use(s.output.get());
    s.shared->engine.setPool(
        std::make_unique<detail::VoicePool>(detail::VoicePool::Settings{
            .voices = s.voices, .rate = s.rate, .reverb = reverb, .wet = wet}),
        s.rate, 0);
}

VoicesBackend::~VoicesBackend() {
    State& s = *state_;
    s.thread.reset();
    if (s.output != nullptr) {
        const Vessa::Lock lock(s.shared->mutex);
        const detail::VoiceOutput::Use use(s.output.get());
        s.shared->engine.setPool(nullptr, s.rate, s.frames);
    }
}

void VoicesBackend::resetBackend() {
    State& s = *state_;
    for (const auto& [id, slot] : s.slots) {
        s.remove(slot);
    }
    for (const auto& [id, shot] : s.shots) {
        s.remove(shot.slot);
    }
    s.slots.clear();
    s.shots.clear();
    s.sounds.clear();
    s.loading.clear();
    s.streamed.clear();
}

void VoicesBackend::setEnabled() {
    state_->shared->changes.changeListener(
        [this](auto& listener) { listener.enabled = world().enabled(); });
}

void VoicesBackend::setListenerTransform() {
    const Vec3f& position = world().listenerPosition();
    const Quaternion& rotation = world().listenerRotation();
    if (accept(isFinite(position) && isFinite(rotation), "listener's transformation")) {
        if (state_->doppler) {
            state_->listenerMotion.add(state_->now(), position);
        }
        state_->shared->changes.changeListener([&](auto& listener) {
            listener.position = position;
            listener.rotation = rotation;
            listener.velocity = state_->listenerMotion.velocity();
            listener.hold = state_->listenerMotion.hold();
        });
    }
}

void VoicesBackend::createSource(Source& source) {
    state_->sounds.try_emplace(source.id());
}

void VoicesBackend::destroySource(Source& source) {
    State& s = *state_;
    s.sounds.erase(source.id());
    std::erase_if(s.shots, [&](const auto& entry) {
        if (entry.second.source != source.id()) {
            return false;
        }
        s.remove(entry.second.slot);
        return true;
    });
}

void VoicesBackend::setSourceData(Source& source) {
    State& s = *state_;
    const auto found = s.sounds.find(source.id());
    if (found == s.sounds.end() || source.dataKind() == Source::NO_SD) {
        return;
    }
    Sound::Settings settings = s.settings;
    if (source.dataKind() == Source::URL_SD && source.urlChannels() == SoundFile::Channels::Mono) {
        settings.keepChannels = false;
    }
    auto sound = std::make_shared<Sound>(settings);
    found->second = sound;
    if (source.dataKind() == Source::PCM_SD) {
        sound->setPcm(
            source.sampleRate(), source.bitsPerSample(), source.channels(), source.data());
    } else if (source.url() == nullptr) {
        ORVEL_REPORT(
            Fatal, detail::about(Diagnostic::Code::Misuse, source),
            "source.url() not set in Source::URL_SD set\n");
        return;
    } else {
        const std::string url = source.url()->text();
        ORVEL_REPORT(
            Log, detail::about(Diagnostic::Code::Loading, source, url), "loading: >%s<\n",
            url.c_str());
        if (s.offline) {
            sound->load(*source.url());
        } else {
            s.loader->load(sound, *source.url());
        }
    }
    for (const auto& [id, emitter] : source.connectedEmitters()) {
        if (const auto slot = s.slots.find(id); slot != s.slots.end()) {
            s.change(slot->second, SceneChanges::NewSound, [&](auto& v) { v.sound = sound; });
        }
    }
    s.loading.push_back({source.id(), std::move(sound)});
    reportLoaded();
}

void VoicesBackend::reportLoaded() {
    State& s = *state_;
    std::vector<State::Loading> done;
    std::erase_if(s.loading, [&](State::Loading& loading) {
        if (loading.sound->state() == Sound::State::Loading) {
            return false;
        }
        done.push_back(std::move(loading));
        return true;
    });
    for (const State::Loading& loaded : done) {
        Source* source = world().getSource(loaded.source);
        if (source == nullptr || s.soundOf(loaded.source) != loaded.sound) {
            continue; // replaced or destroyed meanwhile
        }
        if (loaded.sound->state() == Sound::State::Ready) {
            if (loaded.sound->isStreamed()) {
                s.streamed.push_back(loaded);
            }
            setSourceDuration(*source, static_cast<float>(loaded.sound->seconds()));
        } else if (!loaded.sound->failure().text.empty()) {
            Diagnostic failure = loaded.sound->failure();
            failure.part = *source;
            report(failure);
        }
    }
}

void VoicesBackend::reportDamaged() {
    State& s = *state_;
    std::vector<Diagnostic> found;
    std::erase_if(s.streamed, [&](const State::Loading& streamed) {
        if (s.soundOf(streamed.source) != streamed.sound) {
            return true;
        }
        if (std::string reason = streamed.sound->takeDamage(); !reason.empty()) {
            const Source* source = world().getSource(streamed.source);
            Diagnostic& damage = found.emplace_back();
            damage.code = Diagnostic::Code::CannotPlay;
            damage.level = Log::Level::Fatal;
            if (source != nullptr) {
                damage.part = *source;
            }
            damage.text = "A part of the sound is silent: " + reason;
        }
        return false;
    });
    for (const Diagnostic& damage : found) {
        report(damage);
    }
}

void VoicesBackend::setSourceParam(Source& source) {
    State& s = *state_;
    if (!isFactor("pitch", source.pitch(), source)) {
        return;
    }
    for (const auto& [id, emitter] : source.connectedEmitters()) {
        if (const auto slot = s.slots.find(id); slot != s.slots.end()) {
            s.change(slot->second, SceneChanges::Playback, [&](auto& values) {
                values.voice.pitch = source.pitch();
                values.voice.loop = source.loop();
            });
        }
    }
}

// Only emitters play.
void VoicesBackend::setSourceState(Source& /*source*/) {}

void VoicesBackend::createEmitter(Emitter& emitter) {
    State& s = *state_;
    if (!hasSameLabel(emitter) || s.slots.contains(emitter.id())) {
        return;
    }
    State::Slot slot;
    slot.number = s.takeNumber();
    s.change(slot, SceneChanges::All, [&](auto& values) {
        values = {};
        values.id = emitter.id();
        values.exists = true;
    });
    if (s.doppler) {
        slot.motion = std::make_unique<detail::Motion>();
    }
    s.slots.emplace(emitter.id(), std::move(slot));
}

void VoicesBackend::destroyEmitter(Emitter& emitter) {
    State& s = *state_;
    if (const auto found = s.slots.find(emitter.id()); found != s.slots.end()) {
        s.remove(found->second);
        s.slots.erase(found);
    }
}

void VoicesBackend::setEmitterTransform(Emitter& emitter) {
    const State::Slot* slot = state_->find(emitter);
    const Vec3f& position = emitter.position();
    if (slot != nullptr && accept(isFinite(position), "position", emitter)) {
        const bool spatial = emitter.isSpatial();
        if (slot->motion != nullptr) {
            slot->motion->add(state_->now(), position);
        }
        state_->change(*slot, SceneChanges::Place, [&](auto& values) {
            values.voice.position = position;
            values.voice.spatial = spatial;
            if (slot->motion != nullptr) {
                values.voice.velocity = slot->motion->velocity();
                values.voice.hold = slot->motion->hold();
            }
        });
    }
}

void VoicesBackend::setEmitterHull(Emitter& emitter) {
    const State::Slot* slot = state_->find(emitter);
    const bool finite = isFinite(emitter.hull()) && std::isfinite(emitter.radius());
    if (slot != nullptr && accept(finite, "hull", emitter)) {
        const bool spatial = emitter.isSpatial();
        state_->change(*slot, SceneChanges::Reach, [&](auto& values) {
            values.voice.hull = emitter.hull();
            values.voice.radius = emitter.radius();
            values.voice.attenuated = spatial;
        });
    }
}

void VoicesBackend::setEmitterParam(Emitter& emitter) {
    const State::Slot* slot = state_->find(emitter);
    if (slot == nullptr) {
        return;
    }
    if (isFactor("gain", emitter.gain(), emitter)) {
        state_->change(
            *slot, SceneChanges::Gain, [&](auto& values) { values.voice.gain = emitter.gain(); });
    }
    if (state_->occlusion && accept(std::isfinite(emitter.paramValue()), "value", emitter)) {
        state_->change(*slot, SceneChanges::Occlusion, [&](auto& values) {
            values.voice.occlusion = std::clamp(emitter.paramValue(), 0.0F, 1.0F);
        });
    }
}

void VoicesBackend::setEmitterConnection(Emitter& emitter) {
    State& s = *state_;
    State::Slot* slot = s.find(emitter);
    if (slot == nullptr) {
        return;
    }
    slot->transport.state = Transport::State::Stopped;
    const Source* source = emitter.source();
    auto sound = source == nullptr ? nullptr : s.soundOf(source->id());
    const bool usable = source != nullptr && isFactor("pitch", source->pitch(), *source);
    s.change(
        *slot, SceneChanges::NewSound | SceneChanges::Playback, [&](detail::EmitterValues& values) {
            values.sound = std::move(sound);
            values.transport = slot->transport;
            values.voice.pitch = usable ? source->pitch() : 1.0F;
            values.voice.loop = source != nullptr && source->loop();
        });
}

void VoicesBackend::setEmitterState(Emitter& emitter) {
    State::Slot* slot = state_->find(emitter);
    if (slot == nullptr) {
        return;
    }
    Transport& transport = slot->transport;
    const auto startAnew = [&] {
        ++transport.starts;
        transport.offset = emitter.startOffset();
    };
    switch (emitter.state()) {
    case WorldPart::PLAY:
        ++transport.plays;
        if (transport.state != Transport::State::Paused || emitter.startOffset() > 0.0) {
            startAnew();
        }
        transport.frame = state_->startFrame;
        transport.state = Transport::State::Playing;
        break;
    case WorldPart::PAUSE:
        if (emitter.startOffset() > 0.0) {
            startAnew();
        } else if (transport.state != Transport::State::Playing) {
            return;
        }
        transport.state = Transport::State::Paused;
        break;
    case WorldPart::STOP:
        transport.state = Transport::State::Stopped;
        break;
    case WorldPart::NONE:
        return;
    default:
        ORVEL_REPORT(
            Fatal, detail::about(Diagnostic::Code::Misuse, emitter),
            "VoicesBackend::setEmitterState(): Bad Orvel::Emitter::state %d \n",
            static_cast<int>(emitter.state()));
        return;
    }
    state_->change(
        *slot, SceneChanges::Transported, [&](auto& values) { values.transport = transport; });
}

bool VoicesBackend::update() {
    State& s = *state_;
    reportLoaded();
    reportDamaged();
    std::vector<Diagnostic> diagnostics;
    std::vector<detail::VoiceEngine::Ended> ended;
    std::size_t waiting = 0;
    std::size_t voices = 0;
    {
        const Vessa::Lock lock(s.shared->mutex);
        waiting = s.saidWaiting ? 0 : s.shared->engine.waiting();
        voices = waiting == 0 ? 0 : s.shared->engine.pool()->size();
        diagnostics = std::exchange(s.shared->diagnostics, {});
        auto failures = s.shared->engine.takeFailures();
        std::move(failures.begin(), failures.end(), std::back_inserter(diagnostics));
        ended = s.shared->engine.takeEnded();
        if (s.shared->device != SharedEngine::Device::Opening) {
            s.openAL.reset();
        }
    }
    for (const Diagnostic& diagnostic : diagnostics) {
        if (detail::admitPeerLine(detail::PeerLine::OpenAL)) {
            report(diagnostic);
        }
    }
    if (waiting > 0) {
        s.saidWaiting = true;
        ORVEL_REPORT(
            Warning, detail::about(Diagnostic::Code::Voices),
            "%zu emitters play at once, and the %zu loudest are mixed; the parameter \"voices\" "
            "sets their number\n",
            voices + waiting, voices);
    }
    for (const auto& [id, isShot] : ended) {
        if (isShot) {
            s.endShot(id);
        } else if (Emitter* emitter = s.ended ? world().getEmitter(id) : nullptr) {
            s.ended(*emitter);
        }
    }
    return true;
}

BackendType* VoicesBackend::type() {
    return registerType();
}

bool VoicesBackend::waitForDevice(std::chrono::milliseconds patience) const {
    const State& s = *state_;
    const auto deadline = std::chrono::steady_clock::now() + patience;
    for (;;) {
        {
            const Vessa::Lock lock(s.shared->mutex);
            if (s.offline || s.shared->device != SharedEngine::Device::Opening) {
                return s.shared->engine.pool() != nullptr;
            }
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

BackendState VoicesBackend::state() const {
    const State& s = *state_;
    using Device = BackendState::Device;
    using Hearing = BackendState::Hearing;
    BackendState state;
    state.voicesAllowed = s.voices;
    std::vector<detail::VoiceEngine::Report> reports;
    {
        const Vessa::Lock lock(s.shared->mutex);
        if (const detail::VoicePool* pool = s.shared->engine.pool()) {
            state.voicesAllowed = pool->size();
            state.voicesUsed = pool->sounding();
            state.streams = pool->streams();
        }
        state.working = s.shared->engine.pool() != nullptr ||
                        (!s.offline && s.shared->device == Device::Opening);
        state.device = s.shared->deviceName;
        if (!s.offline) {
            state.deviceState = s.shared->device;
        }
        if (state.deviceState == Device::Open) {
            // A change is mixed at the beginning of the period that follows.
            const double mixing =
                0.5 * static_cast<double>(s.shared->period) / s.shared->clock.nominalRate;
            state.latency = s.shared->engine.changeDelay() + mixing +
                            std::chrono::duration<double>(s.shared->clock.latency).count();
        }
        state.gaps = s.shared->engine.gaps();
        state.failures = s.shared->engine.failureCount();
        reports = s.shared->engine.reports();
    }
    std::ranges::sort(reports, {}, &detail::VoiceEngine::Report::emitter);
    state.emitters.reserve(reports.size());
    for (const auto& report : reports) {
        state.emitters.push_back(
            {report.emitter, report.hearing, world().enabled() ? report.loudness : 0.0F});
        if (report.hearing == Hearing::Waiting) {
            state.waitingEmitters.push_back(report.emitter);
        } else if (report.hearing == Hearing::Refused) {
            state.refusedEmitters.push_back(report.emitter);
        }
    }
    return state;
}

std::size_t VoicesBackend::loadingSounds() const noexcept {
    return state_->loading.size();
}

bool VoicesBackend::isOffline() const noexcept {
    return state_->offline;
}

unsigned VoicesBackend::rate() const noexcept {
    return state_->rate;
}

const OutputLayout& VoicesBackend::layout() const noexcept {
    return state_->layout == nullptr ? kOutputLayouts[0] : *state_->layout;
}

int VoicesBackend::playOnce(const Source& source, const Shot& shot) {
    State& s = *state_;
    auto sound = s.soundOf(source.id());
    if (sound == nullptr || !isFactor("gain", shot.gain, source) ||
        !isFactor("pitch", shot.pitch * source.pitch(), source) ||
        !accept(isFinite(shot.position), "position", source) ||
        !accept(isFinite(shot.hull), "hull", source) ||
        !accept(std::isfinite(shot.offset), "offset", source)) {
        return 0;
    }
    do {
        s.lastShot = s.lastShot == std::numeric_limits<int>::max() ? 1 : s.lastShot + 1;
    } while (s.shots.contains(s.lastShot));
    State::ShotSlot& slot = s.shots[s.lastShot];
    slot.source = source.id();
    slot.slot.number = s.takeNumber();
    s.change(slot.slot, SceneChanges::All, [&](detail::EmitterValues& values) {
        const bool spatial = shot.spatial && world().spatialize();
        values = {};
        values.id = s.lastShot;
        values.isShot = true;
        values.exists = true;
        values.sound = std::move(sound);
        values.voice.position = shot.position;
        values.voice.spatial = spatial;
        values.voice.attenuated = spatial;
        values.voice.hull = shot.hull;
        values.voice.gain = shot.gain;
        values.voice.pitch = shot.pitch * source.pitch();
        values.transport = {Transport::State::Playing, 1, 1, shot.offset, s.startFrame};
    });
    return s.lastShot;
}

void VoicesBackend::stopOnce(int shot) {
    state_->endShot(shot);
}

std::size_t VoicesBackend::shots() const noexcept {
    return state_->shots.size();
}

std::vector<std::string> VoicesBackend::hrtfNames() {
    return detail::VoiceOutput::hrtfNames();
}

std::vector<std::string> VoicesBackend::reverbNames() {
    return detail::Reverb::names();
}

float VoicesBackend::reverbDecay(const std::string& name) {
    return detail::Reverb::decayOf(name);
}

bool VoicesBackend::render(float* samples, unsigned frames) {
    State& s = *state_;
    if (s.output == nullptr) {
        return false;
    }
    {
        const Vessa::Lock lock(s.shared->mutex);
        const detail::VoiceOutput::Use use(s.output.get());
        for (unsigned done = 0; done < frames;) {
            const unsigned block = std::min(frames - done, kBlockFrames);
            s.shared->engine.step(s.frames, block);
            s.output->render(samples + std::size_t{done} * layout().channels, block);
            done += block;
            s.frames += block;
        }
    }
    update();
    return true;
}

void VoicesBackend::setStartFrame(std::optional<std::int64_t> frame) {
    if (frame) {
        frame = std::clamp(*frame, -kMaxFrame, kMaxFrame);
    }
    state_->startFrame = frame;
}

void VoicesBackend::moveSounds(double seconds) {
    if (std::isfinite(seconds)) {
        const Vessa::Lock lock(state_->shared->mutex);
        state_->shared->engine.move(seconds);
    }
}

FrameClock VoicesBackend::frameClock() const {
    const State& s = *state_;
    if (!s.offline) {
        const Vessa::Lock lock(s.shared->mutex);
        return s.shared->clock;
    }
    return {
        .time = std::chrono::steady_clock::now(),
        .heard = static_cast<double>(s.frames),
        .rate = static_cast<double>(s.rate),
        .nominalRate = s.rate,
        .mixed = s.frames,
        .soonest = s.frames + std::int64_t{2} * kBlockFrames};
}

std::optional<double> VoicesBackend::playPosition(const Emitter& emitter) const {
    State& s = *state_;
    const State::Slot* slot = s.find(emitter);
    if (slot == nullptr) {
        return std::nullopt;
    }
    const Vessa::Lock lock(s.shared->mutex);
    const auto report = s.shared->engine.reportOf(slot->number);
    return report ? report->seconds : 0.0;
}

void VoicesBackend::setEndedHandler(std::function<void(Emitter& emitter)> ended) {
    state_->ended = std::move(ended);
}

Backend* VoicesBackend::createMethod(World& world, const char* params) {
    return new VoicesBackend(world, params);
}

BackendType* VoicesBackend::registerType() {
    static BackendType type(
        "voices", &VoicesBackend::createMethod,
        "plays any number of sounds through a sound device, the loudest mixed",
        detail::kVoicesParams);
    return &type;
}

} // namespace Orvel
