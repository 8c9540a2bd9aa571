#include "FakeAL.h"

#include <AL/alext.h>
#include <AL/alut.h>
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <vector>

using Orvel::Test::FakeAL;

struct ALCdevice_struct {
    std::string name;
};

struct ALCcontext_struct {
    std::string name;
    ALenum error = AL_NO_ERROR;
    ALuint sources = 0;
    ALuint buffers = 0;
};

namespace {

ALCcontext* current = nullptr;

/// The name of an AL constant, or its number.
std::string name(ALenum value) {
    static const std::vector<ALenum> kValues{
        AL_GAIN,
        AL_POSITION,
        AL_ORIENTATION,
        AL_VELOCITY,
        AL_DIRECTION,
        AL_PITCH,
        AL_LOOPING,
        AL_BUFFER,
        AL_SOURCE_RELATIVE,
        AL_CONE_INNER_ANGLE,
        AL_CONE_OUTER_ANGLE,
        AL_MAX_DISTANCE,
        AL_ROLLOFF_FACTOR,
        AL_REFERENCE_DISTANCE,
        AL_FORMAT_MONO8,
        AL_FORMAT_MONO16,
        AL_FORMAT_STEREO8,
        AL_FORMAT_STEREO16};
    static const std::vector<const char*> kNames{
        "GAIN",
        "POSITION",
        "ORIENTATION",
        "VELOCITY",
        "DIRECTION",
        "PITCH",
        "LOOPING",
        "BUFFER",
        "SOURCE_RELATIVE",
        "CONE_INNER_ANGLE",
        "CONE_OUTER_ANGLE",
        "MAX_DISTANCE",
        "ROLLOFF_FACTOR",
        "REFERENCE_DISTANCE",
        "MONO8",
        "MONO16",
        "STEREO8",
        "STEREO16"};
    const auto found = std::find(kValues.begin(), kValues.end(), value);
    return found == kValues.end() ? std::to_string(value) : kNames[found - kValues.begin()];
}

std::string vector(ALenum parameter, const ALfloat* values) {
    std::ostringstream list;
    list << name(parameter);
    for (int i = 0; i < (parameter == AL_ORIENTATION ? 6 : 3); ++i) {
        list << ", " << (std::abs(values[i]) < 1e-6F ? 0.0F : values[i]);
    }
    return list.str();
}

/// False when the call is to fail.
template <class... Arguments>
bool record(const std::string& function, const Arguments&... arguments) {
    FakeAL& fake = FakeAL::the();
    std::ostringstream list;
    ((list << (list.tellp() > 0 ? ", " : "") << arguments), ...);
    fake.calls += (fake.calls.empty() ? "" : "; ") + function + "(" + list.str() + ")";
    return !function.starts_with(fake.failing);
}

/// The same for a call of AL itself.
template <class... Arguments>
bool act(const std::string& function, const Arguments&... arguments) {
    const bool works = record(function, arguments...);
    if (!works) {
        FakeAL::setPendingError(AL_INVALID_VALUE);
    }
    return works && current != nullptr;
}

ALboolean alut(bool works, ALenum error = ALUT_ERROR_INVALID_OPERATION) {
    ALenum& pending = FakeAL::the().alutError;
    pending = works || pending != 0 ? pending : error;
    return works ? AL_TRUE : AL_FALSE;
}

ALCdevice* open(bool works) {
    return works ? new ALCdevice{"device " + std::to_string(++FakeAL::the().devices)} : nullptr;
}

ALCdevice* openLoopback(const ALCchar* /*name*/) {
    return open(record("alcLoopbackOpenDeviceSOFT"));
}

} // namespace

FakeAL& FakeAL::the() {
    static FakeAL fake;
    return fake;
}

void FakeAL::setPendingError(ALenum error) {
    if (current != nullptr && current->error == AL_NO_ERROR) {
        current->error = error;
    }
}

extern "C" {

ALCdevice* alcOpenDevice(const ALCchar* name) {
    return open(record("alcOpenDevice", name == nullptr ? "null" : name));
}

ALCboolean alcCloseDevice(ALCdevice* device) {
    record("alcCloseDevice", device->name);
    delete device;
    return ALC_TRUE;
}

ALCcontext* alcCreateContext(ALCdevice* device, const ALCint* attributes) {
    std::string list = attributes == nullptr ? "null" : "";
    for (const ALCint* at = attributes; at != nullptr && *at != 0; at += 2) {
        list += (list.empty() ? "" : " ") + std::to_string(at[0]) + "=" + std::to_string(at[1]);
    }
    const bool works = record("alcCreateContext", device->name, list);
    return works ? new ALCcontext{"context " + std::to_string(++FakeAL::the().contexts)} : nullptr;
}

ALCboolean alcMakeContextCurrent(ALCcontext* context) {
    record("alcMakeContextCurrent", context->name);
    current = context;
    return ALC_TRUE;
}

ALCcontext* alcGetCurrentContext() {
    return current;
}

void alcDestroyContext(ALCcontext* context) {
    record("alcDestroyContext", context->name);
    current = current == context ? nullptr : current;
    delete context;
}

ALCboolean alcIsExtensionPresent(ALCdevice* /*device*/, const ALCchar* name) {
    return record("alcIsExtensionPresent", name) ? ALC_TRUE : ALC_FALSE;
}

void* alcGetProcAddress(ALCdevice* /*device*/, const ALCchar* /*name*/) {
    return reinterpret_cast<void*>(&openLoopback);
}

ALenum alGetError() {
    record("alGetError");
    return current == nullptr ? AL_INVALID_OPERATION : std::exchange(current->error, AL_NO_ERROR);
}

void alListenerf(ALenum parameter, ALfloat value) {
    act("alListenerf", name(parameter), value);
}

void alListenerfv(ALenum parameter, const ALfloat* values) {
    act("alListenerfv", vector(parameter, values));
}

void alGenSources(ALsizei count, ALuint* names) {
    if (act("alGenSources", count)) {
        *names = ++current->sources;
    }
}

void alDeleteSources(ALsizei count, const ALuint* names) {
    act("alDeleteSources", count, *names);
}

void alGenBuffers(ALsizei count, ALuint* names) {
    if (act("alGenBuffers", count)) {
        *names = ++current->buffers;
    }
}

void alDeleteBuffers(ALsizei count, const ALuint* names) {
    act("alDeleteBuffers", count, *names);
}

void alBufferData(
    ALuint buffer, ALenum format, const ALvoid* /*data*/, ALsizei size, ALsizei frequency) {
    act("alBufferData", buffer, name(format), size, frequency);
}

void alSourcef(ALuint source, ALenum parameter, ALfloat value) {
    act("alSourcef", source, name(parameter), value);
}

void alSourcefv(ALuint source, ALenum parameter, const ALfloat* values) {
    act("alSourcefv", source, vector(parameter, values));
}

void alSourcei(ALuint source, ALenum parameter, ALint value) {
    act("alSourcei", source, name(parameter), value);
}

void alSourcePlay(ALuint source) {
    act("alSourcePlay", source);
}

void alSourcePause(ALuint source) {
    act("alSourcePause", source);
}

void alSourceStop(ALuint source) {
    act("alSourceStop", source);
}

ALboolean alutInitWithoutContext(int* /*argc*/, char** /*argv*/) {
    record("alutInitWithoutContext");
    return alut(!std::exchange(FakeAL::the().alutRuns, true));
}

ALboolean alutExit() {
    record("alutExit");
    return alut(std::exchange(FakeAL::the().alutRuns, false));
}

ALenum alutGetError() {
    record("alutGetError");
    return std::exchange(FakeAL::the().alutError, 0);
}

const char* alutGetErrorString(ALenum error) {
    return error == ALUT_ERROR_IO_ERROR ? "I/O error" : "another error";
}

ALvoid*
alutLoadMemoryFromFile(const char* fileName, ALenum* format, ALsizei* size, ALfloat* frequency) {
    const FakeAL::File& file = FakeAL::the().file;
    ALenum error = file.error;
    if (!FakeAL::the().alutRuns) {
        error = ALUT_ERROR_INVALID_OPERATION;
    } else if (std::exchange(current->error, AL_NO_ERROR) != AL_NO_ERROR) {
        error = ALUT_ERROR_AL_ERROR_ON_ENTRY;
    }
    // When failing, it succeeds all the same but leaves an AL error behind.
    act("alutLoadMemoryFromFile", std::strrchr(fileName, '/'));
    if (alut(error == 0, error) == AL_FALSE) {
        return nullptr;
    }
    *format = file.format;
    *size = file.size;
    *frequency = file.frequency;
    return std::calloc(1, static_cast<std::size_t>(file.size) + 1);
}

} // extern "C"
