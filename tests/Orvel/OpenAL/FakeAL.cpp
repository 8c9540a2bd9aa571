#include "FakeAL.h"

#include <AL/alc.h>
#include <AL/alut.h>
#include <cmath>
#include <cstdlib>
#include <map>
#include <sstream>

using Orvel::Test::FakeAL;

struct ALCdevice_struct {
    int number = ++FakeAL::the().devices;
};

struct ALCcontext_struct {
    int number = ++FakeAL::the().contexts;
    ALenum error = AL_NO_ERROR;
    ALuint sources = 0;
    ALuint buffers = 0;
};

namespace {

ALCcontext* current = nullptr;

// clang-format off
const std::map<ALenum, const char*> kNames{
    {AL_GAIN, "GAIN"}, {AL_POSITION, "POSITION"}, {AL_ORIENTATION, "ORIENTATION"},
    {AL_VELOCITY, "VELOCITY"}, {AL_DIRECTION, "DIRECTION"}, {AL_PITCH, "PITCH"},
    {AL_LOOPING, "LOOPING"}, {AL_BUFFER, "BUFFER"}, {AL_SOURCE_RELATIVE, "SOURCE_RELATIVE"},
    {AL_CONE_INNER_ANGLE, "CONE_INNER_ANGLE"}, {AL_CONE_OUTER_ANGLE, "CONE_OUTER_ANGLE"},
    {AL_MAX_DISTANCE, "MAX_DISTANCE"}, {AL_REFERENCE_DISTANCE, "REFERENCE_DISTANCE"},
    {AL_ROLLOFF_FACTOR, "ROLLOFF_FACTOR"}, {AL_FORMAT_MONO8, "MONO8"},
    {AL_FORMAT_MONO16, "MONO16"}, {AL_FORMAT_STEREO8, "STEREO8"},
    {AL_FORMAT_STEREO16, "STEREO16"}};
// clang-format on

std::string vector(ALenum parameter, const ALfloat* values) {
    std::ostringstream list;
    list << kNames.at(parameter);
    for (int i = 0; i < (parameter == AL_ORIENTATION ? 6 : 3); ++i) {
        list << ", " << (std::abs(values[i]) < 1e-6F ? 0.0F : values[i]);
    }
    return list.str();
}

/// Records a call. Returns false if the call must fail.
template <class... Arguments>
bool record(const std::string& function, const Arguments&... arguments) {
    FakeAL& fake = FakeAL::the();
    std::ostringstream list;
    ((list << (list.tellp() > 0 ? ", " : "") << arguments), ...);
    fake.calls += (fake.calls.empty() ? "" : "; ") + function + "(" + list.str() + ")";
    return !function.starts_with(fake.failing);
}

/// The same for AL's own functions.
template <class... Arguments>
bool act(const std::string& function, const Arguments&... arguments) {
    const bool works = record(function, arguments...);
    if (!works) {
        FakeAL::setPendingError(AL_INVALID_VALUE);
    }
    return works && current != nullptr;
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
    return record("alcOpenDevice", name == nullptr ? "null" : name) ? new ALCdevice : nullptr;
}

ALCboolean alcCloseDevice(ALCdevice* device) {
    record("alcCloseDevice", device->number);
    delete device;
    return ALC_TRUE;
}

const ALCchar* alcGetString(ALCdevice* /*device*/, ALCenum /*name*/) {
    return "Fake";
}

void alcGetIntegerv(ALCdevice* /*device*/, ALCenum /*name*/, ALCsizei /*size*/, ALCint* values) {
    *values = 256;
}

ALCcontext* alcCreateContext(ALCdevice* device, const ALCint* attributes) {
    const char* list = attributes == nullptr ? "null" : "some";
    return record("alcCreateContext", device->number, list) ? new ALCcontext : nullptr;
}

ALCboolean alcMakeContextCurrent(ALCcontext* context) {
    record("alcMakeContextCurrent", context->number);
    current = context;
    return ALC_TRUE;
}

ALCcontext* alcGetCurrentContext() {
    return current;
}

void alcDestroyContext(ALCcontext* context) {
    record("alcDestroyContext", context->number);
    current = current == context ? nullptr : current;
    delete context;
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

// Functions that are only recorded: result type, name, parameters, result, recorded text.
#define ORVEL_RECORDED(type, function, parameters, result, ...)                                    \
    type function parameters {                                                                     \
        act(#function __VA_OPT__(, ) __VA_ARGS__);                                                 \
        return result;                                                                             \
    }
// clang-format off
ORVEL_RECORDED(void, alListenerf, (ALenum key, ALfloat value), , kNames.at(key), value)
ORVEL_RECORDED(void, alListenerfv, (ALenum key, const ALfloat* values), , vector(key, values))
ORVEL_RECORDED(void, alDeleteSources, (ALsizei count, const ALuint* names), , count, *names)
ORVEL_RECORDED(void, alDeleteBuffers, (ALsizei count, const ALuint* names), , count, *names)
ORVEL_RECORDED(
    void, alBufferData, (ALuint id, ALenum format, const ALvoid*, ALsizei size, ALsizei rate), ,
    id, kNames.at(format), size, rate)
ORVEL_RECORDED(void, alSourcef, (ALuint id, ALenum key, ALfloat value), , id, kNames.at(key), value)
ORVEL_RECORDED(void, alSourcefv, (ALuint id, ALenum key, const ALfloat* v), , id, vector(key, v))
ORVEL_RECORDED(void, alSourcei, (ALuint id, ALenum key, ALint value), , id, kNames.at(key), value)
ORVEL_RECORDED(
    void, alSource3i, (ALuint id, ALenum key, ALint x, ALint y, ALint z), , id, kNames.at(key), x, y, z)
ORVEL_RECORDED(void, alSourcePlay, (ALuint id), , id)
ORVEL_RECORDED(void, alSourcePause, (ALuint id), , id)
ORVEL_RECORDED(void, alSourceStop, (ALuint id), , id)
ORVEL_RECORDED(void, alSourceQueueBuffers, (ALuint id, ALsizei count, const ALuint*), , id, count)
ORVEL_RECORDED(void, alSourceUnqueueBuffers, (ALuint id, ALsizei count, ALuint*), , id, count)
ORVEL_RECORDED(void, alGetSourcei, (ALuint id, ALenum key, ALint*), , id, key)
ORVEL_RECORDED(ALCboolean, alcIsExtensionPresent, (ALCdevice*, const ALCchar* key), ALC_FALSE, key)
ORVEL_RECORDED(void*, alcGetProcAddress, (ALCdevice*, const ALCchar* key), nullptr, key)
ORVEL_RECORDED(void*, alGetProcAddress, (const ALchar* key), nullptr, key)
ORVEL_RECORDED(ALboolean, alutInitWithoutContext, (int*, char**), AL_TRUE)
ORVEL_RECORDED(ALboolean, alutExit, (), AL_TRUE)
ORVEL_RECORDED(ALenum, alutGetError, (), ALUT_ERROR_NO_ERROR)
ORVEL_RECORDED(const char*, alutGetErrorString, (ALenum error), "error", error)
// clang-format on

ALboolean alIsExtensionPresent(const ALchar* /*name*/) {
    return AL_FALSE;
}

ALvoid* alutLoadMemoryFromFile(
    const char* /*fileName*/, ALenum* format, ALsizei* size, ALfloat* frequency) {
    act("alutLoadMemoryFromFile");
    *format = FakeAL::the().fileFormat;
    *size = 176400;
    *frequency = 44100.9F;
    return std::calloc(1, 176400);
}

} // extern "C"
