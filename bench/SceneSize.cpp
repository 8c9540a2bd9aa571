// Whether creating, replaying and clearing a scene has a constant cost per emitter.
#include "Ratio.h"

#include <Orvel/Emitter.h>
#include <Orvel/Log.h>
#include <Orvel/Source.h>
#include <Orvel/World.h>

#include <array>
#include <malloc.h>

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

/// How many emitters share a source, and whether the scenes of one size exist at the same time. If
/// so, all sizes use the same amount of memory, and only the growth of the work itself remains; if
/// not, a small scene stays in the processor's caches.
struct Variant {
    const char* name;
    int emittersPerSource;
    bool sideBySide;
};
constexpr std::array<Variant, 3> kVariants{
    {{", alone", 8, false}, {", same memory", 8, true}, {", one source", kSizes.back(), true}}};

/// Enough scenes for as many emitters as the largest scene has.
Costs measure(int emitters, const Variant& variant) {
    Costs costs{};
    const int scenes = kSizes.back() / emitters;
    const int atOnce = variant.sideBySide ? scenes : 1;
    for (int done = 0; done < scenes; done += atOnce) {
        malloc_trim(0); // fresh memory for each; fragmented free lists would dominate
        std::vector<Orvel::World> worlds(static_cast<std::size_t>(atOnce));
        const auto timeAll = [&worlds](double& cost, auto&& phase) {
            const auto start = OrvelBench::Clock::now();
            for (Orvel::World& world : worlds) {
                phase(world);
            }
            cost += OrvelBench::secondsSince(start);
        };
        timeAll(costs[0], [&](Orvel::World& world) {
            makeScene(world, emitters, variant.emittersPerSource);
        });
        timeAll(costs[1], [](Orvel::World& world) { world.addBackend("silent", ""); });
        timeAll(costs[2], [](Orvel::World& world) { world.clearWorld(); });
        for (Orvel::World& world : worlds) {
            world.deleteAllBackends();
        }
    }
    for (double& cost : costs) {
        cost /= kSizes.back();
    }
    return costs;
}

} // namespace

int main(int argc, char** argv) {
    using OrvelBench::Aim;
    OrvelBench::Report report("Cost per emitter, against a scene of 1,000", argc, argv);
    Orvel::Log::the().setLevel(Orvel::Log::Level::Warning);

    for (const Variant& variant : kVariants) {
        std::array<std::array<OrvelBench::Pairs, kPhases.size()>, kSizes.size()> pairs;
        const std::size_t rounds = report.quick() ? 1 : 101;
        for (std::size_t round = 0; round < rounds; ++round) {
            std::array<Costs, kSizes.size()> costs{};
            for (std::size_t i = 0; i < kSizes.size(); ++i) {
                const std::size_t size = (i + round) % kSizes.size();
                costs[size] = measure(kSizes[size], variant);
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
                    std::string(kPhases[phase]) + " " + std::to_string(kSizes[size]) + variant.name,
                    pairs[size][phase].medians(), OrvelBench::kNanoseconds, {Aim::Of::Ratio, 1.5});
            }
        }
    }
    return report.finish();
}
