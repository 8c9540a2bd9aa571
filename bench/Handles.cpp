// The cost of checking a handle of the interface in C, among those of 1,000 emitters, against using
// the pointers; and of a setter in C against the same in C++.
#include "Ratio.h"

#include <Orvel/Emitter.h>
#include <Orvel/detail/Handles.h>
#include <Orvel/orvel.h>

int main(int argc, char** argv) {
    using OrvelBench::Aim;
    using OrvelBench::kNanoseconds;
    OrvelBench::Report report("Checked handles of the interface in C", argc, argv);

    constexpr int kEmitters = 1000;
    orvel_world* world = orvel_world_create();
    std::vector<orvel_emitter*> handles;
    std::vector<Orvel::Emitter*> pointers;
    for (int i = 0; i < kEmitters; ++i) {
        handles.push_back(orvel_emitter_create(world, nullptr, 0));
        pointers.push_back(
            &Orvel::detail::live<Orvel::Emitter>(handles.back(), Orvel::detail::Kind::Emitter));
    }
    const auto found = [&] {
        for (orvel_emitter* handle : handles) {
            benchmark::DoNotOptimize(
                &Orvel::detail::live<Orvel::Emitter>(handle, Orvel::detail::Kind::Emitter));
        }
    };
    const auto known = [&] {
        for (Orvel::Emitter* pointer : pointers) {
            benchmark::DoNotOptimize(pointer);
        }
    };
    report.row(
        "a handle checked", report.compare(kEmitters, found, known), kNanoseconds,
        {Aim::Of::Difference, 5.0});

    float gain = 0.0F;
    const auto inC = [&] {
        gain += 1.0F;
        for (orvel_emitter* handle : handles) {
            orvel_emitter_set_param(handle, true, 0.0F, gain);
        }
    };
    const auto inCpp = [&] {
        gain += 1.0F;
        for (Orvel::Emitter* pointer : pointers) {
            pointer->setParam(true, 0.0F, gain);
        }
    };
    report.row(
        "orvel_emitter_set_param, no back end", report.compare(kEmitters, inC, inCpp),
        kNanoseconds);
    if (pointers.back()->gain() != gain) {
        OrvelBench::fail("the setters did nothing");
    }
    orvel_world_destroy(world);
    return report.finish();
}
