#include "FakeAL.h"

#include <AL/alext.h>
#include <AL/alut.h>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <set>
#include <sstream>
#include <utility>

using Orvel::Test::FakeAL;

struct ALCdevice_struct {
    int number;
    std::set<ALuint> buffers;
};

struct ALCcontext_struct {
    int number;
    ALCdevice* device;
    std::set<ALuint> sources;
    ALenum error;
};

namespace {

std::set<ALCdevice*> devices;
std::set<ALCcontext*> contexts;
ALCcontext* current = nullptr;
int deviceCount = 0;
int contextCount = 0;

std::string text(ALuint value) {
    return std::to_string(value);
}
std::string text(ALint value) {
    return std::to_string(value);
}
std::string text(float value) {
    std::ostringstream stream;
    stream << (std::abs(value) < 1e-6F ? 0.0F : value);
    return stream.str();
}
std::string text(const ALCdevice* device) {
    return device == nullptr ? "null" : "device " + std::to_string(device->number);
}
std::string text(const ALCcontext* context) {
    return context == nullptr ? "null" : "context " + std::to_string(context->number);
}
std::string text(const char* value) {
    return value == nullptr ? "null" : value;
}

std::string enumText(ALenum value) {
    static const std::map<ALenum, const char*> names{
        {AL_GAIN, "AL_GAIN"},
        {AL_POSITION, "AL_POSITION"},
        {AL_ORIENTATION, "AL_ORIENTATION"},
        {AL_VELOCITY, "AL_VELOCITY"},
        {AL_DIRECTION, "AL_DIRECTION"},
        {AL_CONE_INNER_ANGLE, "AL_CONE_INNER_ANGLE"},
        {AL_CONE_OUTER_ANGLE, "AL_CONE_OUTER_ANGLE"},
        {AL_REFERENCE_DISTANCE, "AL_REFERENCE_DISTANCE"},
        {AL_MAX_DISTANCE, "AL_MAX_DISTANCE"},
        {AL_ROLLOFF_FACTOR, "AL_ROLLOFF_FACTOR"},
        {AL_PITCH, "AL_PITCH"},
        {AL_LOOPING, "AL_LOOPING"},
        {AL_BUFFER, "AL_BUFFER"},
        {AL_SOURCE_RELATIVE, "AL_SOURCE_RELATIVE"},
        {AL_FORMAT_MONO8, "MONO8"},
        {AL_FORMAT_MONO16, "MONO16"},
        {AL_FORMAT_STEREO8, "STEREO8"},
        {AL_FORMAT_STEREO16, "STEREO16"}};
    const auto found = names.find(value);
    return found == names.end() ? std::to_string(value) : found->second;
}

std::string vectorText(ALenum parameter, const ALfloat* values) {
    std::string list = enumText(parameter);
    for (int i = 0; i < (parameter == AL_ORIENTATION ? 6 : 3); ++i) {
        list += ", " + text(values[i]);
    }
    return list;
}

template <class... Arguments>
void record(const char* function, const Arguments&... arguments) {
    std::string list;
    ((list += (list.empty() ? "" : ", ") + std::string(arguments)), ...);
    FakeAL::the().record(std::string(function) + "(" + list + ")");
}

void raise(ALenum error) {
    if (current != nullptr && current->error == AL_NO_ERROR) {
        current->error = error;
    }
}

/// True when the call may take effect.
bool begin(const char* function) {
    const ALenum failure = FakeAL::the().failureOf(function);
    if (failure != 0) {
        raise(failure);
    }
    return failure == 0 && current != nullptr;
}

ALuint addName(std::set<ALuint>& names) {
    ALuint name = 1;
    while (names.contains(name)) {
        ++name;
    }
    names.insert(name);
    return name;
}

void requireSource(const char* function, ALuint source) {
    if (begin(function) && !current->sources.contains(source)) {
        raise(AL_INVALID_NAME);
    }
}

void raiseAlut(ALenum error) {
    if (FakeAL::the().alutError == 0) {
        FakeAL::the().alutError = error;
    }
}

ALCdevice* newDevice() {
    if (!FakeAL::the().opensDevices) {
        return nullptr;
    }
    return *devices.insert(new ALCdevice{++deviceCount, {}}).first;
}

ALCdevice* openLoopback(const ALCchar* name) {
    record("alcLoopbackOpenDeviceSOFT", text(name));
    return newDevice();
}

void renderSamples(ALCdevice* device, ALCvoid* samples, ALCsizei frames) {
    record("alcRenderSamplesSOFT", text(device), text(frames));
    std::memset(samples, 0, sizeof(float) * 2 * static_cast<std::size_t>(frames));
}

} // namespace

FakeAL& FakeAL::the() {
    static FakeAL fake;
    return fake;
}

void FakeAL::reset() {
    for (ALCcontext* context : contexts) {
        delete context;
    }
    for (ALCdevice* device : devices) {
        delete device;
    }
    contexts.clear();
    devices.clear();
    current = nullptr;
    deviceCount = contextCount = 0;
    *this = FakeAL();
}

std::vector<std::string> FakeAL::take() {
    return std::exchange(calls_, {});
}

void FakeAL::setPendingError(ALenum error) {
    raise(error);
}

ALenum FakeAL::failureOf(const char* function) const {
    const auto found = failures_.find(function);
    return found == failures_.end() ? 0 : found->second;
}

int FakeAL::living() {
    std::size_t count = devices.size() + contexts.size();
    for (const ALCcontext* context : contexts) {
        count += context->sources.size();
    }
    for (const ALCdevice* device : devices) {
        count += device->buffers.size();
    }
    return static_cast<int>(count);
}

extern "C" {

ALCdevice* alcOpenDevice(const ALCchar* name) {
    record("alcOpenDevice", text(name));
    return newDevice();
}

ALCboolean alcCloseDevice(ALCdevice* device) {
    record("alcCloseDevice", text(device));
    const bool found = devices.erase(device) != 0;
    delete device;
    return found ? ALC_TRUE : ALC_FALSE;
}

ALCcontext* alcCreateContext(ALCdevice* device, const ALCint* attributes) {
    std::string list = attributes == nullptr ? "null" : "";
    for (const ALCint* at = attributes; at != nullptr && *at != 0; at += 2) {
        list += (list.empty() ? "" : " ") + text(at[0]) + "=" + text(at[1]);
    }
    record("alcCreateContext", text(device), list);
    if (!FakeAL::the().createsContexts) {
        return nullptr;
    }
    return *contexts.insert(new ALCcontext{++contextCount, device, {}, AL_NO_ERROR}).first;
}

ALCboolean alcMakeContextCurrent(ALCcontext* context) {
    record("alcMakeContextCurrent", text(context));
    current = context;
    return ALC_TRUE;
}

ALCcontext* alcGetCurrentContext() {
    ++FakeAL::the().queries;
    return current;
}

void alcDestroyContext(ALCcontext* context) {
    record("alcDestroyContext", text(context));
    current = current == context ? nullptr : current;
    contexts.erase(context);
    delete context;
}

ALCboolean alcIsExtensionPresent(ALCdevice* device, const ALCchar* name) {
    record("alcIsExtensionPresent", text(device), text(name));
    return FakeAL::the().hasLoopback ? ALC_TRUE : ALC_FALSE;
}

void* alcGetProcAddress(ALCdevice* /*device*/, const ALCchar* name) {
    return std::strcmp(name, "alcRenderSamplesSOFT") == 0 ? reinterpret_cast<void*>(&renderSamples)
                                                          : reinterpret_cast<void*>(&openLoopback);
}

ALenum alGetError() {
    record("alGetError");
    return current == nullptr ? AL_INVALID_OPERATION : std::exchange(current->error, AL_NO_ERROR);
}

void alListenerf(ALenum parameter, ALfloat value) {
    record("alListenerf", enumText(parameter), text(value));
    begin("alListenerf");
}

void alListenerfv(ALenum parameter, const ALfloat* values) {
    record("alListenerfv", vectorText(parameter, values));
    begin("alListenerfv");
}

void alGenSources(ALsizei count, ALuint* names) {
    record("alGenSources", text(count));
    if (begin("alGenSources")) {
        *names = addName(current->sources);
    }
}

void alDeleteSources(ALsizei count, const ALuint* names) {
    record("alDeleteSources", text(count), text(*names));
    if (begin("alDeleteSources") && current->sources.erase(*names) == 0) {
        raise(AL_INVALID_NAME);
    }
}

void alGenBuffers(ALsizei count, ALuint* names) {
    record("alGenBuffers", text(count));
    if (begin("alGenBuffers")) {
        *names = addName(current->device->buffers);
    }
}

void alDeleteBuffers(ALsizei count, const ALuint* names) {
    record("alDeleteBuffers", text(count), text(*names));
    if (begin("alDeleteBuffers") && current->device->buffers.erase(*names) == 0) {
        raise(AL_INVALID_NAME);
    }
}

void alBufferData(
    ALuint buffer, ALenum format, const ALvoid* /*data*/, ALsizei size, ALsizei frequency) {
    record("alBufferData", text(buffer), enumText(format), text(size), text(frequency));
    if (begin("alBufferData") && !current->device->buffers.contains(buffer)) {
        raise(AL_INVALID_NAME);
    }
}

void alSourcef(ALuint source, ALenum parameter, ALfloat value) {
    record("alSourcef", text(source), enumText(parameter), text(value));
    requireSource("alSourcef", source);
}

void alSourcefv(ALuint source, ALenum parameter, const ALfloat* values) {
    record("alSourcefv", text(source), vectorText(parameter, values));
    requireSource("alSourcefv", source);
}

void alSourcei(ALuint source, ALenum parameter, ALint value) {
    record("alSourcei", text(source), enumText(parameter), text(value));
    requireSource("alSourcei", source);
}

void alSourcePlay(ALuint source) {
    record("alSourcePlay", text(source));
    requireSource("alSourcePlay", source);
}

void alSourcePause(ALuint source) {
    record("alSourcePause", text(source));
    requireSource("alSourcePause", source);
}

void alSourceStop(ALuint source) {
    record("alSourceStop", text(source));
    requireSource("alSourceStop", source);
}

ALboolean alutInitWithoutContext(int* argc, char** argv) {
    record(
        "alutInitWithoutContext", argc == nullptr ? "null" : "argc",
        argv == nullptr ? "null" : "argv");
    if (FakeAL::the().alutRuns) {
        raiseAlut(ALUT_ERROR_INVALID_OPERATION);
        return AL_FALSE;
    }
    FakeAL::the().alutRuns = true;
    return AL_TRUE;
}

ALboolean alutExit() {
    record("alutExit");
    if (!FakeAL::the().alutRuns) {
        raiseAlut(ALUT_ERROR_INVALID_OPERATION);
        return AL_FALSE;
    }
    FakeAL::the().alutRuns = false;
    return AL_TRUE;
}

ALenum alutGetError() {
    record("alutGetError");
    return std::exchange(FakeAL::the().alutError, 0);
}

const char* alutGetErrorString(ALenum error) {
    static std::string words;
    words = "ALUT says " + std::to_string(error);
    return words.c_str();
}

ALvoid*
alutLoadMemoryFromFile(const char* fileName, ALenum* format, ALsizei* size, ALfloat* frequency) {
    record("alutLoadMemoryFromFile", std::strrchr(fileName, '/'));
    const FakeAL::File& file = FakeAL::the().file;
    if (!FakeAL::the().alutRuns) {
        raiseAlut(ALUT_ERROR_INVALID_OPERATION);
        return nullptr;
    }
    if (current == nullptr) {
        raiseAlut(ALUT_ERROR_NO_CURRENT_CONTEXT);
        return nullptr;
    }
    if (std::exchange(current->error, AL_NO_ERROR) != AL_NO_ERROR) {
        raiseAlut(ALUT_ERROR_AL_ERROR_ON_ENTRY);
        return nullptr;
    }
    if (file.error != 0) {
        raiseAlut(file.error);
        return nullptr;
    }
    begin("alutLoadMemoryFromFile"); // an error left behind by a load that succeeded
    *format = file.format;
    *size = file.size;
    *frequency = file.frequency;
    return std::calloc(1, static_cast<std::size_t>(file.size) + 1);
}

} // extern "C"
