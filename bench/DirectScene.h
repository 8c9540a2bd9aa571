#pragma once

#include "Ratio.h"
#include "Sound.h"

#include <AL/al.h>
#include <AL/alc.h>
#include <AL/alext.h>
#include <algorithm>
#include <array>
#include <cstddef>
#include <functional>
#include <vector>

namespace OrvelBench {

constexpr float kNear = 1.0F; ///< the distances between which the emitters' levels fall
constexpr float kFar = 50.0F;

/// A scene in plain OpenAL on a loopback device, for comparison: looped emitters around the
/// listener.
class DirectScene {
public:
    struct Settings {
        int emitters = 0;
        std::vector<unsigned char> samples; ///< as tone()
        std::function<float(int)> gainOf;
        std::function<int(int)> startOf = [](int) { return 0; }; ///< the first frame
        bool binaural = false;
    };

    explicit DirectScene(const Settings& settings)
        : sources_(static_cast<std::size_t>(settings.emitters)) {
        const auto open = reinterpret_cast<LPALCLOOPBACKOPENDEVICESOFT>(
            alcGetProcAddress(nullptr, "alcLoopbackOpenDeviceSOFT"));
        render_ = reinterpret_cast<LPALCRENDERSAMPLESSOFT>(
            alcGetProcAddress(nullptr, "alcRenderSamplesSOFT"));
        const std::array<ALCint, 13> attributes{
            ALC_FORMAT_CHANNELS_SOFT,
            ALC_STEREO_SOFT,
            ALC_FORMAT_TYPE_SOFT,
            ALC_FLOAT_SOFT,
            ALC_FREQUENCY,
            static_cast<ALCint>(kRate),
            ALC_HRTF_SOFT,
            settings.binaural ? ALC_TRUE : ALC_FALSE,
            ALC_MONO_SOURCES,
            std::max(settings.emitters, 255),
            ALC_STEREO_SOURCES,
            1,
            0};
        device_ = open(nullptr);
        context_ = alcCreateContext(device_, attributes.data());
        alcMakeContextCurrent(context_);
        alGenBuffers(1, &buffer_);
        alBufferData(
            buffer_, AL_FORMAT_MONO16, settings.samples.data(),
            static_cast<ALsizei>(settings.samples.size()), static_cast<ALsizei>(kRate));
        alGenSources(static_cast<ALsizei>(sources_.size()), sources_.data());
        int emitter = 0;
        for (const ALuint source : sources_) {
            alSourcef(source, AL_REFERENCE_DISTANCE, kNear);
            alSourcef(source, AL_MAX_DISTANCE, kFar);
            alSourcef(source, AL_GAIN, settings.gainOf(emitter));
            alSourcei(source, AL_BUFFER, static_cast<ALint>(buffer_));
            alSourcei(source, AL_LOOPING, AL_TRUE);
            alSourcei(source, AL_SAMPLE_OFFSET, settings.startOf(emitter));
            ++emitter;
        }
        move([](int i) { return placeOf(i, 0); });
        alSourcePlayv(static_cast<ALsizei>(sources_.size()), sources_.data());
        if (alGetError() != AL_NO_ERROR) {
            fail("OpenAL refuses the scene that is to be compared with");
        }
    }
    DirectScene(const DirectScene&) = delete;
    DirectScene& operator=(const DirectScene&) = delete;
    ~DirectScene() {
        alcDestroyContext(context_);
        alcCloseDevice(device_);
    }

    /// Places each emitter, with the same calls that a back end makes; Updates compares those
    /// separately. `placeAt` gets the number of the emitter.
    template <class Place>
    void move(Place&& placeAt) {
        int i = 0;
        for (const ALuint source : sources_) {
            if (alcGetCurrentContext() != context_) {
                alcMakeContextCurrent(context_);
            }
            const Orvel::Vec3f place = placeAt(i++);
            alSourcefv(source, AL_POSITION, std::array{place.x, place.y, place.z}.data());
            alSourcei(source, AL_SOURCE_RELATIVE, AL_FALSE);
            if (alGetError() != AL_NO_ERROR) {
                fail("a direct AL call was refused");
            }
        }
    }
    /// Renders stereo frames.
    void render(float* samples, unsigned frames) {
        render_(device_, samples, static_cast<ALCsizei>(frames));
    }

private:
    std::vector<ALuint> sources_;
    ALuint buffer_ = 0;
    ALCdevice* device_ = nullptr;
    ALCcontext* context_ = nullptr;
    LPALCRENDERSAMPLESSOFT render_ = nullptr;
};

} // namespace OrvelBench
