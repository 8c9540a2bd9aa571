#include "FakeAL.h"

#include <AL/alext.h>
#include <AL/alut.h>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <map>
#include <sstream>

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
    static const std::map<ALenum, const char*> kNames{
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
    const auto found = kNames.find(value);
    return found == kNames.end() ? std::to_string(value) : found->second;
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

void alGenSources(ALsizei count, ALuint* names) {
    if (act("alGenSources", count)) {
        *names = ++current->sources;
    }
}

void alGenBuffers(ALsizei count, ALuint* names) {
    if (act("alGenBuffers", count)) {
        *names = ++current->buffers;
    }
}

// Those that do nothing but to be recorded: name, parameters, what is written down.
#define ORVEL_RECORDED(function, parameters, ...)                                                  \
    void function parameters {                                                                     \
        act(#function, __VA_ARGS__);                                                               \
    }
ORVEL_RECORDED(alListenerf, (ALenum parameter, ALfloat value), name(parameter), value)
ORVEL_RECORDED(alListenerfv, (ALenum parameter, const ALfloat* values), vector(parameter, values))
ORVEL_RECORDED(alDeleteSources, (ALsizei count, const ALuint* names), count, *names)
ORVEL_RECORDED(alDeleteBuffers, (ALsizei count, const ALuint* names), count, *names)
ORVEL_RECORDED(
    alBufferData, (ALuint buffer, ALenum format, const ALvoid*, ALsizei size, ALsizei frequency),
    buffer, name(format), size, frequency)
ORVEL_RECORDED(alSourcef, (ALuint source, ALenum key, ALfloat value), source, name(key), value)
ORVEL_RECORDED(alSourcefv, (ALuint source, ALenum key, const ALfloat* v), source, vector(key, v))
ORVEL_RECORDED(alSourcei, (ALuint source, ALenum key, ALint value), source, name(key), value)
ORVEL_RECORDED(alSourcePlay, (ALuint source), source)
ORVEL_RECORDED(alSourcePause, (ALuint source), source)
ORVEL_RECORDED(alSourceStop, (ALuint source), source)

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
