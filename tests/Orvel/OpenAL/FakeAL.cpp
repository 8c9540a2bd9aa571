#include "FakeAL.h"

#include <AL/alext.h>
#include <AL/alut.h>
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <set>
#include <sstream>

using Orvel::Test::FakeAL;

struct ALCdevice_struct {
    std::size_t number;
    std::set<ALuint> buffers;
};

struct ALCcontext_struct {
    std::size_t number;
    ALCdevice* device;
    std::set<ALuint> sources;
    ALenum error;
};

namespace {

struct Enum {
    ALenum value;
};

struct Vector {
    ALenum parameter;
    const ALfloat* values;
};

std::set<ALCdevice*> devices;
std::set<ALCcontext*> contexts;
std::size_t deviceCount = 0;
std::size_t contextCount = 0;
ALCcontext* current = nullptr;

const std::map<ALenum, const char*> kNames{
    {AL_GAIN, "GAIN"},
    {AL_POSITION, "POSITION"},
    {AL_ORIENTATION, "ORIENTATION"},
    {AL_VELOCITY, "VELOCITY"},
    {AL_DIRECTION, "DIRECTION"},
    {AL_PITCH, "PITCH"},
    {AL_LOOPING, "LOOPING"},
    {AL_BUFFER, "BUFFER"},
    {AL_SOURCE_RELATIVE, "SOURCE_RELATIVE"},
    {AL_CONE_INNER_ANGLE, "CONE_INNER_ANGLE"},
    {AL_CONE_OUTER_ANGLE, "CONE_OUTER_ANGLE"},
    {AL_MAX_DISTANCE, "MAX_DISTANCE"},
    {AL_ROLLOFF_FACTOR, "ROLLOFF_FACTOR"},
    {AL_REFERENCE_DISTANCE, "REFERENCE_DISTANCE"},
    {AL_FORMAT_MONO8, "MONO8"},
    {AL_FORMAT_MONO16, "MONO16"},
    {AL_FORMAT_STEREO8, "STEREO8"},
    {AL_FORMAT_STEREO16, "STEREO16"}};

template <class T>
std::string text(const T& value) {
    std::ostringstream out;
    if constexpr (std::is_floating_point_v<T>) {
        out << (std::abs(value) < 1e-6F ? 0.0F : value);
    } else if constexpr (std::is_same_v<T, Enum>) {
        const auto found = kNames.find(value.value);
        out << (found == kNames.end() ? text(value.value) : found->second);
    } else if constexpr (std::is_same_v<T, Vector>) {
        out << text(Enum{value.parameter});
        std::for_each_n(
            value.values, value.parameter == AL_ORIENTATION ? 6 : 3,
            [&out](ALfloat number) { out << ", " << text(number); });
    } else if constexpr (std::is_same_v<T, ALCdevice*> || std::is_same_v<T, ALCcontext*>) {
        out << (std::is_same_v<T, ALCdevice*> ? "device " : "context ") << value->number;
    } else {
        out << value;
    }
    return out.str();
}

template <class... Arguments>
void record(const char* function, const Arguments&... arguments) {
    std::string list;
    ((list += (list.empty() ? "" : ", ") + text(arguments)), ...);
    std::string& calls = FakeAL::the().calls;
    calls += (calls.empty() ? "" : "; ") + std::string(function) + "(" + list + ")";
}

/// True when the call may take effect.
bool begins(const char* function) {
    const auto failure = FakeAL::the().failures.find(function);
    if (failure != FakeAL::the().failures.end()) {
        FakeAL::setPendingError(failure->second);
        return false;
    }
    return current != nullptr;
}

template <class... Arguments>
void sourceCall(const char* function, ALuint source, const Arguments&... arguments) {
    record(function, source, arguments...);
    if (begins(function) && !current->sources.contains(source)) {
        FakeAL::setPendingError(AL_INVALID_NAME);
    }
}

ALuint newName(std::set<ALuint>& names) {
    return *names.insert(names.empty() ? 1 : *names.rbegin() + 1).first;
}

bool raiseAlut(ALenum error) {
    ALenum& pending = FakeAL::the().alutError;
    pending = pending == 0 ? error : pending;
    return false;
}

ALCdevice* newDevice() {
    return FakeAL::the().opensDevices ? *devices.insert(new ALCdevice{++deviceCount, {}}).first
                                      : nullptr;
}

ALCdevice* openLoopback(const ALCchar* /*name*/) {
    record("alcLoopbackOpenDeviceSOFT");
    return newDevice();
}

} // namespace

FakeAL& FakeAL::the() {
    static FakeAL fake;
    return fake;
}

void FakeAL::reset() {
    the() = FakeAL();
    deviceCount = contextCount = 0;
}

void FakeAL::setPendingError(ALenum error) {
    if (current != nullptr && current->error == AL_NO_ERROR) {
        current->error = error;
    }
}

std::size_t FakeAL::open() {
    return devices.size() + contexts.size();
}

extern "C" {

ALCdevice* alcOpenDevice(const ALCchar* name) {
    record("alcOpenDevice", name == nullptr ? "null" : name);
    return newDevice();
}

ALCboolean alcCloseDevice(ALCdevice* device) {
    record("alcCloseDevice", device);
    devices.erase(device);
    delete device;
    return ALC_TRUE;
}

ALCcontext* alcCreateContext(ALCdevice* device, const ALCint* attributes) {
    std::string list = attributes == nullptr ? "null" : "";
    for (const ALCint* at = attributes; at != nullptr && *at != 0; at += 2) {
        list += (list.empty() ? "" : " ") + text(at[0]) + "=" + text(at[1]);
    }
    record("alcCreateContext", device, list);
    return FakeAL::the().createsContexts
               ? *contexts.insert(new ALCcontext{++contextCount, device, {}, AL_NO_ERROR}).first
               : nullptr;
}

ALCboolean alcMakeContextCurrent(ALCcontext* context) {
    record("alcMakeContextCurrent", context);
    current = context;
    return ALC_TRUE;
}

ALCcontext* alcGetCurrentContext() {
    ++FakeAL::the().queries;
    return current;
}

void alcDestroyContext(ALCcontext* context) {
    record("alcDestroyContext", context);
    current = current == context ? nullptr : current;
    contexts.erase(context);
    delete context;
}

ALCboolean alcIsExtensionPresent(ALCdevice* /*device*/, const ALCchar* name) {
    const bool known = std::strcmp(name, "ALC_SOFT_loopback") == 0;
    return known && FakeAL::the().hasLoopback ? ALC_TRUE : ALC_FALSE;
}

void* alcGetProcAddress(ALCdevice* /*device*/, const ALCchar* name) {
    const bool known = std::strcmp(name, "alcLoopbackOpenDeviceSOFT") == 0;
    return known ? reinterpret_cast<void*>(&openLoopback) : nullptr;
}

ALenum alGetError() {
    record("alGetError");
    return current == nullptr ? AL_INVALID_OPERATION : std::exchange(current->error, AL_NO_ERROR);
}

void alListenerf(ALenum parameter, ALfloat value) {
    record("alListenerf", Enum{parameter}, value);
    begins("alListenerf");
}

void alListenerfv(ALenum parameter, const ALfloat* values) {
    record("alListenerfv", Vector{parameter, values});
    begins("alListenerfv");
}

void alGenSources(ALsizei count, ALuint* names) {
    record("alGenSources", count);
    if (begins("alGenSources")) {
        *names = newName(current->sources);
    }
}

void alDeleteSources(ALsizei count, const ALuint* names) {
    record("alDeleteSources", count, *names);
    if (begins("alDeleteSources") && current->sources.erase(*names) == 0) {
        FakeAL::setPendingError(AL_INVALID_NAME);
    }
}

void alGenBuffers(ALsizei count, ALuint* names) {
    record("alGenBuffers", count);
    if (begins("alGenBuffers")) {
        *names = newName(current->device->buffers);
    }
}

void alDeleteBuffers(ALsizei count, const ALuint* names) {
    record("alDeleteBuffers", count, *names);
    if (begins("alDeleteBuffers") && current->device->buffers.erase(*names) == 0) {
        FakeAL::setPendingError(AL_INVALID_NAME);
    }
}

void alBufferData(
    ALuint buffer, ALenum format, const ALvoid* /*data*/, ALsizei size, ALsizei frequency) {
    record("alBufferData", buffer, Enum{format}, size, frequency);
    if (begins("alBufferData") && !current->device->buffers.contains(buffer)) {
        FakeAL::setPendingError(AL_INVALID_NAME);
    }
}

void alSourcef(ALuint source, ALenum parameter, ALfloat value) {
    sourceCall("alSourcef", source, Enum{parameter}, value);
}

void alSourcefv(ALuint source, ALenum parameter, const ALfloat* values) {
    sourceCall("alSourcefv", source, Vector{parameter, values});
}

void alSourcei(ALuint source, ALenum parameter, ALint value) {
    sourceCall("alSourcei", source, Enum{parameter}, value);
}

void alSourcePlay(ALuint source) {
    sourceCall("alSourcePlay", source);
}

void alSourcePause(ALuint source) {
    sourceCall("alSourcePause", source);
}

void alSourceStop(ALuint source) {
    sourceCall("alSourceStop", source);
}

ALboolean alutInitWithoutContext(int* argc, char** argv) {
    record("alutInitWithoutContext");
    if (argc != nullptr || argv != nullptr) {
        return raiseAlut(ALUT_ERROR_INVALID_VALUE);
    }
    return !std::exchange(FakeAL::the().alutRuns, true) || raiseAlut(ALUT_ERROR_INVALID_OPERATION);
}

ALboolean alutExit() {
    record("alutExit");
    return std::exchange(FakeAL::the().alutRuns, false) || raiseAlut(ALUT_ERROR_INVALID_OPERATION);
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
    ALenum error = file.error;
    if (!FakeAL::the().alutRuns) {
        error = ALUT_ERROR_INVALID_OPERATION;
    } else if (current == nullptr) {
        error = ALUT_ERROR_NO_CURRENT_CONTEXT;
    } else if (std::exchange(current->error, AL_NO_ERROR) != AL_NO_ERROR) {
        error = ALUT_ERROR_AL_ERROR_ON_ENTRY;
    }
    if (error != 0) {
        raiseAlut(error);
        return nullptr;
    }
    begins("alutLoadMemoryFromFile"); // an error left behind by a load that succeeded
    *format = file.format;
    *size = file.size;
    *frequency = file.frequency;
    return std::calloc(1, static_cast<std::size_t>(file.size) + 1);
}

} // extern "C"
