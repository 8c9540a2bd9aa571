#include <Orvel/OALBackend.h>

#include <Corvid/URL.h>
#include <Orvel/BackendState.h>
#include <Orvel/Emitter.h>
#include <Orvel/Source.h>
#include <Orvel/World.h>
#include <Orvel/detail/Report.h>
#include <Orvel/detail/al/ALCalls.h>
#include <Orvel/detail/al/OALDevice.h>
#include <Orvel/detail/net/PeerLines.h>

#include <AL/al.h>
#include <AL/alc.h>
#include <AL/alext.h>
#include <AL/alut.h>
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <iostream>
#include <map>
#include <set>
#include <string>
#include <unordered_map>

namespace Orvel {

namespace {

/// The PCM sample layouts that AL supports.
struct SampleLayout {
    unsigned bitsPerSample;
    unsigned channels;
    ALenum format;
    unsigned bytesPerFrame;
};
constexpr std::array<SampleLayout, 4> kSampleLayouts{
    {{8, 1, AL_FORMAT_MONO8, 1},
     {16, 1, AL_FORMAT_MONO16, 2},
     {8, 2, AL_FORMAT_STEREO8, 2},
     {16, 2, AL_FORMAT_STEREO16, 4}}};

const SampleLayout* layoutOf(ALenum format) {
    for (const SampleLayout& layout : kSampleLayouts) {
        if (layout.format == format) {
            return &layout;
        }
    }
    return nullptr;
}

const SampleLayout* layoutOf(unsigned bitsPerSample, unsigned channels) {
    for (const SampleLayout& layout : kSampleLayouts) {
        if (layout.bitsPerSample == bitsPerSample && layout.channels == channels) {
            return &layout;
        }
    }
    return nullptr;
}

float seconds(std::size_t bytes, double sampleRate, const SampleLayout& layout) {
    return static_cast<float>(static_cast<double>(bytes) / sampleRate / layout.bytesPerFrame);
}

struct FreeMemory {
    void operator()(void* memory) const noexcept { std::free(memory); }
};

/// A sound file as read by ALUT; without samples on failure.
struct LoadedSound {
    std::unique_ptr<void, FreeMemory> samples;
    ALenum format = 0;
    ALsizei size = 0;
    ALfloat frequency = 0.0F;
    ALenum error = ALUT_ERROR_NO_ERROR;

    /// The sample rate for AL; 0, which AL refuses, for an invalid one.
    [[nodiscard]] ALsizei sampleRate() const {
        constexpr ALfloat kTooHigh = 2147483648.0F;
        return frequency >= 1.0F && frequency < kTooHigh ? static_cast<ALsizei>(frequency) : 0;
    }
};

LoadedSound tryToLoad(const std::string& fileName) {
    // ALUT keeps the first error until it is read; an old one would replace the reason of this
    // load's failure.
    alutGetError();
    LoadedSound sound;
    sound.samples.reset(
        alutLoadMemoryFromFile(fileName.c_str(), &sound.format, &sound.size, &sound.frequency));
    if (sound.samples == nullptr) {
        sound.error = alutGetError();
    }
    return sound;
}

LoadedSound load(const std::string& fileName) {
    LoadedSound sound = tryToLoad(fileName);
    // ALUT does not count its users: the exit of another back end has ended it for this one too.
    if (sound.error == ALUT_ERROR_INVALID_OPERATION && alutInitWithoutContext(nullptr, nullptr)) {
        sound = tryToLoad(fileName);
    }
    return sound;
}

/// A fetch that failed, in two log lines: the second one is the whole reason, if there is one.
void reportNoDownload(
    const Source& source, const std::string& url, const char* whole, const std::string& reason) {
    Diagnostic diagnostic = detail::about(Diagnostic::Code::CannotFetch, source, url, reason);
    diagnostic.text = "OALBackend: Cannot download file \"" + url + "\"";
    if (detail::isHandled(diagnostic)) {
        return;
    }
    ORVEL_LOG(Fatal, "OALBackend: Cannot download file \"%s\"\n", url.c_str());
    if (whole != nullptr) {
        ORVEL_LOG(Notice, "%s\n", whole);
    }
}

/// A file that ALUT cannot read. True if the sink has dealt with it.
bool reportUnreadable(const Source& source, const std::string& url, ALenum error) {
    const char* reason = alutGetErrorString(error);
    Diagnostic diagnostic = detail::about(Diagnostic::Code::CannotPlay, source, url, reason);
    diagnostic.text = std::string("AOLError: ") + reason;
    const bool handled = detail::isHandled(diagnostic);
    if (!handled) {
        std::cerr << "AOLError: " << reason << std::endl;
    }
    return handled;
}

/// Sets an AL source to the emitter's start offset. Returns false if the sound is over there.
bool seek(ALuint name, const Emitter& emitter) {
    const Source* source = emitter.source();
    double offset = emitter.startOffset();
    if (!(offset > 0.0) || source == nullptr || !(source->duration() > 0.0F)) {
        return true;
    }
    const auto duration = static_cast<double>(source->duration());
    if (offset >= duration) {
        if (!source->loop()) {
            return false;
        }
        offset = std::fmod(offset, duration);
    }
    // If the source is not playing, AL keeps the offset for the next start.
    alSourcef(name, AL_SEC_OFFSET, static_cast<ALfloat>(offset));
    return true;
}

} // namespace

/// The AL objects that belong to the back end's context.
struct OALBackend::Objects {
    /// AL names by the ids of parts. Every change of an emitter looks up its name, so those of
    /// small ids are in a table.
    class Names {
    public:
        /// Null if there is none.
        [[nodiscard]] const ALuint* find(int id) const {
            if (const auto index = static_cast<std::size_t>(id); index < table_.size()) {
                return table_[index] == 0 ? nullptr : &table_[index]; // AL has no name 0
            }
            const auto found = others_.find(id);
            return found == others_.end() ? nullptr : &found->second;
        }
        /// Adds a name; the id has none.
        void add(int id, ALuint name) {
            ++size_;
            const auto index = static_cast<std::size_t>(id); // beyond the table if negative
            if (index >= kMaxTable) {
                others_[id] = name;
                return;
            }
            if (index >= table_.size()) {
                table_.resize(std::min(kMaxTable, std::max(index + 1, 2 * table_.size())));
            }
            table_[index] = name;
        }
        /// The id has a name.
        void erase(int id) {
            --size_;
            if (const auto index = static_cast<std::size_t>(id); index < table_.size()) {
                table_[index] = 0;
            } else {
                others_.erase(id);
            }
        }
        void clear() { *this = {}; }
        [[nodiscard]] std::size_t size() const { return size_; }
        /// The names in ascending order of the ids.
        [[nodiscard]] std::map<int, ALuint> inOrder() const {
            std::map<int, ALuint> all(others_.begin(), others_.end());
            for (std::size_t id = 0; id < table_.size(); ++id) {
                if (table_[id] != 0) {
                    all.emplace(static_cast<int>(id), table_[id]);
                }
            }
            return all;
        }

    private:
        static constexpr std::size_t kMaxTable = 65536;

        std::vector<ALuint> table_;
        std::unordered_map<int, ALuint> others_;
        std::size_t size_ = 0;
    };

    Names emitterSources;    // emitter id to AL source
    Names sourceBuffers;     // source id to AL buffer
    std::set<int> refused;   // emitters without an AL source
    bool haveRadius = false; // an emitter is or was more than a point
    std::uint64_t failures = 0;

    /// The AL source of an emitter, or null.
    [[nodiscard]] const ALuint* sourceOf(const Emitter& emitter) const {
        return emitterSources.find(emitter.id());
    }
};

// Both constructors log themselves, because a line contains the name of the constructor.
OALBackend::OALBackend(World& world, const char* params)
    : Backend(world, params), device_(std::make_unique<detail::OALDevice>()),
      objects_(std::make_unique<Objects>()) {
    if (const char* failure = open()) {
        ORVEL_REPORT(Fatal, detail::about(Diagnostic::Code::NoDevice), "%s", failure);
    } else {
        ORVEL_LOG(Notice, "OpenAL device & context open: ok\n");
    }
}

OALBackend::OALBackend(World& world, const char* params, std::unique_ptr<detail::OALDevice> device)
    : Backend(world, params), device_(std::move(device)), objects_(std::make_unique<Objects>()) {
    if (const char* failure = open()) {
        ORVEL_REPORT(Fatal, detail::about(Diagnostic::Code::NoDevice), "%s", failure);
    } else {
        ORVEL_LOG(Notice, "OpenAL device & context open: ok\n");
    }
}

const char* OALBackend::open() {
    detail::OALDevice& d = *device_;
    const char* failure = nullptr;
    d.device = d.open(*params());
    if (d.device == nullptr) {
        failure = "Open OpenAL device failed\n";
    } else {
        d.context = alcCreateContext(d.device, d.attributes());
        if (d.context == nullptr) {
            failure = "Cannot create OpenAL context\n";
            alcCloseDevice(d.device);
            d.device = nullptr;
        } else {
            alcMakeContextCurrent(d.context);
        }
    }
    alutInitWithoutContext(nullptr, nullptr);
    return failure;
}

OALBackend::~OALBackend() {
    OALBackend::resetBackend();
    if (device_->context != nullptr) {
        alcDestroyContext(device_->context);
    }
    if (device_->device != nullptr) {
        alcCloseDevice(device_->device);
    }
    alutExit();
}

bool OALBackend::working() const noexcept {
    return device_->context != nullptr;
}

BackendState OALBackend::state() const {
    BackendState state;
    state.working = working();
    state.failures = objects_->failures;
    state.refusedEmitters.assign(objects_->refused.begin(), objects_->refused.end());
    if (state.working) {
        const char* name = alcGetString(device_->device, ALC_ALL_DEVICES_SPECIFIER);
        state.device = name == nullptr ? "" : name;
        ALCint allowed = 0;
        alcGetIntegerv(device_->device, ALC_MONO_SOURCES, 1, &allowed);
        state.voicesAllowed = static_cast<std::size_t>(std::max(allowed, 0));
        state.voicesUsed = objects_->emitterSources.size();
    }
    return state;
}

bool OALBackend::selectContext() const {
    ALCcontext* const context = device_->context;
    if (context == nullptr) {
        return false;
    }
    // Names of AL objects are only unique per context: in another back end's context a call would
    // silently change that one's objects.
    if (alcGetCurrentContext() != context) {
        alcMakeContextCurrent(context);
    }
    return true;
}

template <class Subject>
bool OALBackend::check(const char* message, const Subject& subject) const {
    return !selectContext() || checkSelected(message, subject);
}

template <class Subject>
bool OALBackend::checkSelected(const char* message, const Subject& subject) const {
    const ALenum error = alGetError();
    if (error == AL_NO_ERROR) {
        return false;
    }
    reportALError(message, subject, error);
    return true;
}

bool OALBackend::checkALError(const char* message) const {
    return check(message, Diagnostic::Part());
}

void OALBackend::reportALError(const char* message, Diagnostic::Part part, int error) const {
    ++objects_->failures;
    if (!detail::isReported(Log::Level::Fatal) ||
        !detail::admitPeerLine(detail::PeerLine::OpenAL)) {
        return; // peers of a server can cause such errors too
    }
    const std::string reason = detail::errorText(error);
    Diagnostic diagnostic = detail::about(Diagnostic::Code::OpenAL, part, {}, reason);
    diagnostic.text = message == nullptr ? "" : message;
    diagnostic.text.erase(diagnostic.text.find_last_not_of('\n') + 1);
    if (detail::isHandled(diagnostic)) {
        return;
    }
    if (message != nullptr) {
        ORVEL_LOG(Fatal, "%s", message);
    }
    ORVEL_LOG(Fatal, "OpenAL state machine error: %s\n", reason.c_str());
}

bool OALBackend::reportRefusedSound(const Source& source) {
    const std::string name = source.url() == nullptr ? "" : source.url()->text();
    const std::string message = "OpenAL refuses the sound \"" + name + "\"\n";
    bool refused = false;
    for (Backend* backend : source.world().backends()) {
        const auto* openAL = dynamic_cast<const OALBackend*>(backend);
        if (openAL != nullptr && openAL->working()) {
            refused = openAL->check(message.c_str(), source) || refused;
        }
    }
    return refused;
}

void OALBackend::resetBackend() {
    if (!selectContext()) {
        return;
    }
    for (const auto& [id, source] : objects_->emitterSources.inOrder()) {
        alSourceStop(source);
        alDeleteSources(1, &source);
    }
    objects_->emitterSources.clear();
    for (const auto& [id, buffer] : objects_->sourceBuffers.inOrder()) {
        alDeleteBuffers(1, &buffer);
    }
    objects_->sourceBuffers.clear();
    objects_->refused.clear();
    checkALError("Cannot reset backend\n");
}

void OALBackend::setEnabled() {
    if (!selectContext()) {
        return;
    }
    alListenerf(AL_GAIN, world().enabled() ? 1.0F : 0.0F);
    checkALError("Cannot set listener gain\n");
}

void OALBackend::setListenerTransform() {
    if (!selectContext()) {
        return;
    }
    // Moving the listener unmutes it, until the next setEnabled() mutes it.
    alListenerf(AL_GAIN, 1.0F);
    detail::setListenerPlace(world().listenerPosition(), world().listenerRotation());
    checkALError("Cannot set listener transformation\n");
}

void OALBackend::createSource(Source& source) {
    if (!selectContext() || objects_->sourceBuffers.find(source.id()) != nullptr) {
        return;
    }
    ALuint buffer = 0;
    alGenBuffers(1, &buffer);
    if (!check("Cannot create source\n", source)) {
        objects_->sourceBuffers.add(source.id(), buffer);
    }
}

void OALBackend::destroySource(Source& source) {
    if (!selectContext()) {
        return;
    }
    const ALuint* buffer = objects_->sourceBuffers.find(source.id());
    if (buffer == nullptr) {
        return;
    }
    alDeleteBuffers(1, buffer);
    objects_->sourceBuffers.erase(source.id());
    check("Cannot destroy source\n", source);
}

void OALBackend::setSourceData(Source& source) {
    if (!selectContext()) {
        return;
    }
    const ALuint* buffer = objects_->sourceBuffers.find(source.id());
    if (buffer == nullptr) {
        return;
    }
    if (source.dataKind() == Source::URL_SD) {
        if (source.url() == nullptr) {
            ORVEL_REPORT(
                Fatal, detail::about(Diagnostic::Code::Misuse, source),
                "source.url() not set in Source::URL_SD set\n");
            return;
        }
        const std::string url = source.url()->text();
        ORVEL_REPORT(
            Log, detail::about(Diagnostic::Code::Loading, source, url), "loading: >%s<\n",
            url.c_str());
        std::unique_ptr<Corvid::URLImpl::File> file;
        try {
            file = source.url()->fetch();
        } catch (const Corvid::URLImpl::Exception& fault) {
            reportNoDownload(source, url, fault.what(), fault.reason());
            return;
        } catch (const std::exception& fault) {
            reportNoDownload(source, url, fault.what(), fault.what());
            return;
        } catch (...) {
            reportNoDownload(source, url, nullptr, "unknown");
            return;
        }
        // ALUT refuses to load while an AL error is pending, and discards the error, so it is
        // reported first.
        checkALError("left by an earlier operation, before a wav file load\n");
        const LoadedSound sound = load(file->name());
        const bool reported =
            sound.samples == nullptr && reportUnreadable(source, url, sound.error);
        if (check("wav file load error\n", source)) {
            return;
        }
        const SampleLayout* layout = layoutOf(sound.format);
        if (layout == nullptr && sound.samples != nullptr) {
            ORVEL_REPORT(
                Fatal,
                detail::about(
                    Diagnostic::Code::CannotPlay, source, url,
                    "unknown sample format " + std::to_string(sound.format)),
                "Unkown sound format: %d\n", sound.format);
        } else if (layout == nullptr && !reported) { // the second line about an unreadable file
            ORVEL_LOG(Fatal, "Unkown sound format: %d\n", sound.format);
        }
        if (layout == nullptr) {
            return;
        }
        const ALsizei sampleRate = sound.sampleRate();
        ORVEL_LOG(
            Notice, "Set alBufferData from URL data: %d, %d, %d\n", sound.format, sampleRate,
            sound.size);
        alBufferData(*buffer, sound.format, sound.samples.get(), sound.size, sampleRate);
        if (sampleRate > 0) {
            const auto bytes = static_cast<std::size_t>(sound.size);
            setSourceDuration(source, seconds(bytes, sampleRate, *layout));
        }
    } else if (source.dataKind() == Source::PCM_SD) {
        const std::vector<unsigned char>& data = source.data();
        const unsigned sampleRate = source.sampleRate();
        const unsigned bits = source.bitsPerSample();
        const unsigned channels = source.channels();
        ORVEL_LOG(
            Notice, "Set alBufferData from PCM data: %d, %d, %d\n", static_cast<int>(sampleRate),
            static_cast<int>(bits), static_cast<int>(channels));
        if (sampleRate == 0 || bits == 0 || channels == 0 || data.empty()) {
            return;
        }
        const SampleLayout* layout = layoutOf(bits, channels);
        if (layout == nullptr) {
            ORVEL_REPORT(
                Fatal, detail::about(Diagnostic::Code::CannotPlay, source),
                "Invalid source bits/channels: %d/%d\n", static_cast<int>(bits),
                static_cast<int>(channels));
            return;
        }
        alBufferData(
            *buffer, layout->format, data.data(), static_cast<ALsizei>(data.size()),
            static_cast<ALsizei>(sampleRate));
        if (check("alBufferData() call failed\n", source)) {
            return;
        }
        setSourceDuration(source, seconds(data.size(), sampleRate, *layout));
    }
}

void OALBackend::setSourceParam(Source& source) {
    if (!selectContext()) {
        return;
    }
    for (const auto& [id, emitter] : source.connectedEmitters()) {
        const ALuint* name = emitter == nullptr ? nullptr : objects_->sourceOf(*emitter);
        if (name != nullptr) {
            detail::setPlayback(*name, source.pitch(), source.loop());
            check("Cannot set source parameters\n", source);
        }
    }
}

// Only emitters play.
void OALBackend::setSourceState(Source& /*source*/) {}

void OALBackend::createEmitter(Emitter& emitter) {
    if (!selectContext() || !hasSameLabel(emitter) || objects_->sourceOf(emitter) != nullptr) {
        return;
    }
    ALuint name = 0;
    alGenSources(1, &name);
    if (check("Cannot create emitter\n", emitter)) {
        objects_->refused.insert(emitter.id());
    } else {
        objects_->emitterSources.add(emitter.id(), name);
    }
}

void OALBackend::destroyEmitter(Emitter& emitter) {
    if (!selectContext()) {
        return;
    }
    objects_->refused.erase(emitter.id());
    const ALuint* name = objects_->sourceOf(emitter);
    if (name == nullptr) {
        return;
    }
    alSourceStop(*name);
    alDeleteSources(1, name);
    objects_->emitterSources.erase(emitter.id());
    check("Cannot destroy emitter\n", emitter);
}

const unsigned int* OALBackend::select(const Emitter& emitter) const {
    return selectContext() ? objects_->sourceOf(emitter) : nullptr;
}

void OALBackend::setEmitterTransform(Emitter& emitter) {
    const ALuint* name = select(emitter);
    if (name == nullptr) {
        return;
    }
    detail::setPlace(*name, emitter.isSpatial(), emitter.position());
    checkSelected("Cannot set emitter transformation\n", emitter);
}

void OALBackend::setEmitterHull(Emitter& emitter) {
    const ALuint* name = select(emitter);
    if (name == nullptr) {
        return;
    }
    const bool spatial = emitter.isSpatial();
    detail::setReach(*name, spatial, emitter.hull());
    if (objects_->haveRadius || emitter.radius() > 0.0F) {
        objects_->haveRadius = true;
        detail::setRadius(*name, spatial ? emitter.radius() : 0.0F);
    }
    checkSelected("Cannot set emitter hull\n", emitter);
}

void OALBackend::setEmitterParam(Emitter& emitter) {
    const ALuint* name = select(emitter);
    if (name == nullptr) {
        return;
    }
    alSourcef(*name, AL_GAIN, emitter.gain());
    checkSelected("Cannot set emitter parameters\n", emitter);
}

void OALBackend::setEmitterConnection(Emitter& emitter) {
    const ALuint* name = select(emitter);
    if (name == nullptr) {
        return;
    }
    // AL does not accept a buffer while a source plays.
    alSourceStop(*name);
    const Source* source = emitter.source();
    if (source == nullptr) {
        alSourcei(*name, AL_BUFFER, 0);
        check("Cannot disconnect emitter and source\n", emitter);
        return;
    }
    const ALuint* buffer = objects_->sourceBuffers.find(source->id());
    if (buffer == nullptr) {
        alSourcei(*name, AL_BUFFER, 0);
    } else {
        alSourcei(*name, AL_BUFFER, static_cast<ALint>(*buffer));
        detail::setPlayback(*name, source->pitch(), source->loop());
    }
    check("Cannot connect emitter and source\n", emitter);
}

void OALBackend::setEmitterState(Emitter& emitter) {
    const ALuint* name = select(emitter);
    if (name == nullptr) {
        return;
    }
    switch (emitter.state()) {
    case WorldPart::PLAY:
        if (!seek(*name, emitter)) {
            break;
        }
        alSourcePlay(*name);
        check("Cannot play sound\n", emitter);
        break;
    case WorldPart::PAUSE:
        seek(*name, emitter);
        alSourcePause(*name);
        check("Cannot pause sound\n", emitter);
        break;
    case WorldPart::STOP:
        alSourceStop(*name);
        check("Cannot stop sound\n", emitter);
        break;
    case WorldPart::NONE:
        break;
    default:
        ORVEL_REPORT(
            Fatal, detail::about(Diagnostic::Code::Misuse, emitter),
            "OALBackend::setEmitterState(): Bad Orvel::Emitter::state %d \n",
            static_cast<int>(emitter.state()));
    }
}

BackendType* OALBackend::type() {
    return &_type;
}

Backend* OALBackend::createMethod(World& world, const char* params) {
    return new OALBackend(world, params);
}

} // namespace Orvel
