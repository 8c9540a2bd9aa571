// Whether making, replaying and clearing a scene costs the same per emitter however large it is.
#include "Ratio.h"

#include <Orvel/Emitter.h>
#include <Orvel/Log.h>
#include <Orvel/Source.h>
#include <Orvel/World.h>

#include <array>

namespace {

constexpr std::array<int, 3> kSizes{1000, 10000, 30000};
constexpr std::array<const char*, 3> kPhases{"create", "replay", "clear"};

using Costs = std::array<double, kPhases.size()>; // seconds per emitter

void makeScene(Orvel::World& world, int emitters, int emittersPerSource) {
    Orvel::Source* source = nullptr;
    for (int i = 0; i < emitters; ++i) {
        if (i % emittersPerSource == 0) {
            source = world.createSource();
        }
        Orvel::Emitter* emitter = world.createEmitter();
        const Orvel::Vec3f position{static_cast<float>(i), 0.0F, -1.0F};
        emitter->setTransform(&position, nullptr);
        emitter->setHull(50.0F, 50.0F, 1.0F, 1.0F);
        emitter->setParam(true, 0.0F, 0.5F);
        emitter->setSource(source);
    }
}

/// One scene after the other until as many emitters have been made as the largest scene has.
Costs measure(int emitters, int emittersPerSource) {
    Costs costs{};
    const int scenes = kSizes.back() / emitters;
    for (int i = 0; i < scenes; ++i) {
        Orvel::World world;
        auto start = OrvelBench::Clock::now();
        makeScene(world, emitters, emittersPerSource);
        costs[0] += OrvelBench::secondsSince(start);
        start = OrvelBench::Clock::now();
        world.addBackend("silent", "");
        costs[1] += OrvelBench::secondsSince(start);
        start = OrvelBench::Clock::now();
        world.clearWorld();
        costs[2] += OrvelBench::secondsSince(start);
        world.deleteAllBackends();
    }
    for (double& cost : costs) {
        cost /= static_cast<double>(emitters) * scenes;
    }
    return costs;
}

} // namespace

int main(int argc, char** argv) {
    using OrvelBench::Aim;
    OrvelBench::Report report("Cost per emitter, against a scene of 1,000", argc, argv);
    Orvel::Log::the().setLevel(Orvel::Log::Level::Warning);

    for (const int emittersPerSource : {8, kSizes.back()}) {
        std::array<std::array<OrvelBench::Pairs, kPhases.size()>, kSizes.size()> pairs;
        const std::size_t rounds = report.quick() ? 1 : 101;
        for (std::size_t round = 0; round < rounds; ++round) {
            std::array<Costs, kSizes.size()> costs{};
            for (std::size_t i = 0; i < kSizes.size(); ++i) {
                const std::size_t size = (i + round) % kSizes.size();
                costs[size] = measure(kSizes[size], emittersPerSource);
            }
            for (std::size_t size = 0; size < kSizes.size(); ++size) {
                for (std::size_t phase = 0; phase < kPhases.size(); ++phase) {
                    pairs[size][phase].add(costs[size][phase], costs[0][phase]);
                }
            }
        }
        for (std::size_t phase = 0; phase < kPhases.size(); ++phase) {
            for (std::size_t size = 1; size < kSizes.size(); ++size) {
                report.row(
                    std::string(kPhases[phase]) + " " + std::to_string(kSizes[size]) +
                        (emittersPerSource == 8 ? ", 8 on a source" : ", all on one source"),
                    pairs[size][phase].medians(), OrvelBench::kNanoseconds, {Aim::Of::Ratio, 1.5});
            }
        }
    }
    return report.finish();
}
