// The speed of rendering a scene, against the same scene pulled from OpenAL Soft without the
// library.
#include "DirectScene.h"
#include "Ratio.h"
#include "Sound.h"

#include <Orvel/Emitter.h>
#include <Orvel/Log.h>
#include <Orvel/OALLoopbackBackend.h>
#include <Orvel/World.h>

#include <array>

namespace {

using OrvelBench::kFar;
using OrvelBench::kNear;
using OrvelBench::placeOf;

constexpr unsigned kFrames = OrvelBench::kRate / 100; // per block of 10 ms
using Block = std::array<float, std::size_t{2} * kFrames>;

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
        move([](int i) { return placeOf(i, 0); });
        source->setState(Orvel::WorldPart::PLAY);
    }
    LibraryScene(const LibraryScene&) = delete;
    LibraryScene& operator=(const LibraryScene&) = delete;
    ~LibraryScene() { world_.clearWorld(); }

    template <class Place>
    void move(Place&& placeAt) {
        int i = 0;
        for (Orvel::Emitter* emitter : emitters_) {
            const Orvel::Vec3f place = placeAt(i++);
            emitter->setTransform(&place, nullptr);
        }
    }
    void render(float* samples, unsigned frames) { backend_.render(samples, frames); }

private:
    Orvel::World world_;
    Orvel::OALLoopbackBackend backend_;
    std::vector<Orvel::Emitter*> emitters_;
};

/// Renders block by block; the emitters optionally move before each one.
template <class Scene>
class Run {
public:
    Run(Scene& scene, bool moving) : scene_(scene), moving_(moving) {}
    void operator()() {
        if (moving_) {
            step_ = (step_ + 1) % OrvelBench::kSteps;
            scene_.move([this](int i) { return placeOf(i, step_); });
        }
        scene_.render(block.data(), kFrames);
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
            OrvelBench::DirectScene directScene(
                {.emitters = count, .samples = OrvelBench::tone(), .gainOf = [](int) {
                     return kGain;
                 }});
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
