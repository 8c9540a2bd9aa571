// The speed of rendering a scene, against the same scene pulled from OpenAL Soft without the
// library.
#include "Ratio.h"
#include "Sound.h"

#include <Orvel/Emitter.h>
#include <Orvel/Log.h>
#include <Orvel/OALLoopbackBackend.h>
#include <Orvel/World.h>

#include <AL/al.h>
#include <AL/alc.h>
#include <AL/alext.h>
#include <array>

namespace {

using OrvelBench::placeOf;

constexpr unsigned kFrames = OrvelBench::kRate / 100; // per block of 10 ms
using Block = std::array<float, std::size_t{2} * kFrames>;

constexpr float kNear = 1.0F;
constexpr float kFar = 50.0F;
constexpr float kGain = 0.25F;

/// The scene through the library.
class LibraryScene {
public:
    explicit LibraryScene(int emitterCount) : backend_(world_, "") {
        if (!backend_.working()) {
            OrvelBench::fail("OpenAL opens no loopback device for the back end");
        }
        Orvel::Source* source = world_.createSource();
        OrvelBench::setSamples(*source, OrvelBench::tone());
        source->setParam(true, 1.0F);
        for (int i = 0; i < emitterCount; ++i) {
            Orvel::Emitter* emitter = world_.createEmitter();
            emitter->setHull(kFar, kFar, kNear, kNear);
            emitter->setParam(true, 0.0F, kGain);
            emitter->setSource(source);
            emitters_.push_back(emitter);
        }
        move(0);
        source->setState(Orvel::WorldPart::PLAY);
    }
    LibraryScene(const LibraryScene&) = delete;
    LibraryScene& operator=(const LibraryScene&) = delete;
    ~LibraryScene() { world_.clearWorld(); }

    void move(int step) {
        int i = 0;
        for (Orvel::Emitter* emitter : emitters_) {
            const Orvel::Vec3f place = placeOf(i++, step);
            emitter->setTransform(&place, nullptr);
        }
    }
    void render(Block& block) { backend_.render(block.data(), kFrames); }

private:
    Orvel::World world_;
    Orvel::OALLoopbackBackend backend_;
    std::vector<Orvel::Emitter*> emitters_;
};

/// The same scene in plain OpenAL.
class DirectScene {
public:
    explicit DirectScene(int emitterCount) : sources_(static_cast<std::size_t>(emitterCount)) {
        const auto open = reinterpret_cast<LPALCLOOPBACKOPENDEVICESOFT>(
            alcGetProcAddress(nullptr, "alcLoopbackOpenDeviceSOFT"));
        render_ = reinterpret_cast<LPALCRENDERSAMPLESSOFT>(
            alcGetProcAddress(nullptr, "alcRenderSamplesSOFT"));
        constexpr std::array<ALCint, 13> kAttributes{
            ALC_FORMAT_CHANNELS_SOFT,
            ALC_STEREO_SOFT,
            ALC_FORMAT_TYPE_SOFT,
            ALC_FLOAT_SOFT,
            ALC_FREQUENCY,
            static_cast<ALCint>(OrvelBench::kRate),
            ALC_HRTF_SOFT,
            ALC_FALSE,
            ALC_MONO_SOURCES,
            255,
            ALC_STEREO_SOURCES,
            1,
            0};
        device_ = open(nullptr);
        context_ = alcCreateContext(device_, kAttributes.data());
        alcMakeContextCurrent(context_);
        alGenBuffers(1, &buffer_);
        const auto samples = OrvelBench::tone();
        alBufferData(
            buffer_, AL_FORMAT_MONO16, samples.data(), static_cast<ALsizei>(samples.size()),
            static_cast<ALsizei>(OrvelBench::kRate));
        alGenSources(static_cast<ALsizei>(sources_.size()), sources_.data());
        for (const ALuint source : sources_) {
            alSourcef(source, AL_REFERENCE_DISTANCE, kNear);
            alSourcef(source, AL_MAX_DISTANCE, kFar);
            alSourcef(source, AL_GAIN, kGain);
            alSourcei(source, AL_BUFFER, static_cast<ALint>(buffer_));
            alSourcei(source, AL_LOOPING, AL_TRUE);
        }
        move(0);
        alSourcePlayv(static_cast<ALsizei>(sources_.size()), sources_.data());
        if (alGetError() != AL_NO_ERROR) {
            OrvelBench::fail("OpenAL refuses the scene that is to be compared with");
        }
    }
    DirectScene(const DirectScene&) = delete;
    DirectScene& operator=(const DirectScene&) = delete;
    ~DirectScene() {
        alcDestroyContext(context_);
        alcCloseDevice(device_);
    }

    /// With the same calls that the back end makes; Updates compares those separately.
    void move(int step) {
        int i = 0;
        for (const ALuint source : sources_) {
            if (alcGetCurrentContext() != context_) {
                alcMakeContextCurrent(context_);
            }
            const Orvel::Vec3f place = placeOf(i++, step);
            alSourcefv(source, AL_POSITION, std::array{place.x, place.y, place.z}.data());
            alSourcei(source, AL_SOURCE_RELATIVE, AL_FALSE);
            if (alGetError() != AL_NO_ERROR) {
                OrvelBench::fail("a direct AL call was refused");
            }
        }
    }
    void render(Block& block) { render_(device_, block.data(), static_cast<ALCsizei>(kFrames)); }

private:
    std::vector<ALuint> sources_;
    ALuint buffer_ = 0;
    ALCdevice* device_ = nullptr;
    ALCcontext* context_ = nullptr;
    LPALCRENDERSAMPLESSOFT render_ = nullptr;
};

/// Renders block by block; the emitters optionally move before each one.
template <class Scene>
class Run {
public:
    Run(Scene& scene, bool moving) : scene_(scene), moving_(moving) {}
    void operator()() {
        if (moving_) {
            step_ = (step_ + 1) % OrvelBench::kSteps;
            scene_.move(step_);
        }
        scene_.render(block);
        benchmark::DoNotOptimize(block);
    }
    Block block{};

private:
    Scene& scene_;
    bool moving_;
    int step_ = 0;
};

} // namespace

int main(int argc, char** argv) {
    using OrvelBench::Aim;
    OrvelBench::isolateOpenAL();
    OrvelBench::Report report("Rendering, in seconds of sound a second", argc, argv);
    Orvel::Log::the().setLevel(Orvel::Log::Level::Warning);

    for (const bool moving : {false, true}) {
        for (const int count : {1, 32, 256}) {
            LibraryScene libraryScene(count);
            DirectScene directScene(count);
            Run library(libraryScene, moving);
            Run direct(directScene, moving);
            for (int i = 0; i < 2 * OrvelBench::kSteps; ++i) {
                library();
                direct();
                if (library.block != direct.block) {
                    OrvelBench::fail("the two scenes do not sound the same");
                }
            }
            if (library.block == Block{}) {
                OrvelBench::fail("the scene is silent");
            }
            auto result = report.compare(1.0, library, direct); // seconds per block
            constexpr double kBlockSeconds = 0.01;
            result.figure = kBlockSeconds / result.figure;
            result.baseline = kBlockSeconds / result.baseline;
            result.difference = result.figure - result.baseline;
            report.row(
                std::to_string(count) + (moving ? " emitters, all moving" : " emitters, at rest"),
                result, {"x", 1.0}, {Aim::Of::Ratio, 1.05});
        }
    }
    return report.finish();
}
