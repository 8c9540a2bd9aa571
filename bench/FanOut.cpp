// The cost of a change of a part on its way to the back ends, against calling them directly.
#include "Ratio.h"

#include <Orvel/Backend.h>
#include <Orvel/Emitter.h>
#include <Orvel/Log.h>
#include <Orvel/OwningWorld.h>

#include <array>

namespace {

constexpr int kEmitters = 256;

/// A world with silent back ends, and the same back ends in an array.
struct Scene {
    explicit Scene(int backendCount) {
        for (int i = 0; i < backendCount; ++i) {
            backends.push_back(world.addBackend("silent", ""));
        }
        for (int i = 0; i < kEmitters; ++i) {
            emitters.push_back(world.createEmitter());
        }
    }
    Scene(const Scene&) = delete;
    Scene& operator=(const Scene&) = delete;

    /// Another position and rotation than in the last pass, so that no call is skipped.
    void moveAll() {
        static constexpr std::array<Orvel::Vec3f, 2> kPositions{{{1, 2, 3}, {-3, 2, -1}}};
        static constexpr std::array<Orvel::Quaternion, 2> kRotations{{{0, 0, 0, 1}, {0, 1, 0, 0}}};
        pass ^= 1U;
        for (Orvel::Emitter* emitter : emitters) {
            emitter->setTransform(&kPositions[pass], &kRotations[pass]);
        }
    }

    void callAll() {
        for (Orvel::Emitter* emitter : emitters) {
            for (Orvel::Backend* backend : backends) {
                backend->setEmitterTransform(*emitter);
            }
            benchmark::ClobberMemory();
        }
    }

    Orvel::OwningWorld<> world;
    std::vector<Orvel::Backend*> backends;
    std::vector<Orvel::Emitter*> emitters;
    unsigned pass = 0;
};

} // namespace

int main(int argc, char** argv) {
    using OrvelBench::Aim;
    OrvelBench::Report report("Emitter::setTransform against plain virtual calls", argc, argv);
    Orvel::Log::the().setLevel(Orvel::Log::Level::Warning);

    constexpr std::array<int, 4> kCounts{0, 1, 4, 16};
    std::array<double, kCounts.size()> costs{};
    for (std::size_t i = 0; i < kCounts.size(); ++i) {
        Scene scene(kCounts[i]);
        const auto cost = report.compare(
            kEmitters, [&] { scene.moveAll(); }, [&] { scene.callAll(); });
        costs[i] = cost.figure;
        report.row(
            std::to_string(kCounts[i]) + " back ends", cost, OrvelBench::kNanoseconds,
            {Aim::Of::Difference, 10.0});
    }
    OrvelBench::Pairs growth;
    growth.add((costs[3] - costs[2]) / 12.0, (costs[2] - costs[1]) / 3.0);
    report.row(
        "each of back ends 5-16, against 2-4", growth.medians(), OrvelBench::kNanoseconds,
        {Aim::Of::Ratio, 1.5});
    return report.finish();
}
