// The total memory of a part, against the size of its object or of its samples.
#include "Ratio.h"
#include "Sound.h"

#include <Orvel/Emitter.h>
#include <Orvel/Source.h>
#include <Orvel/World.h>

#include <malloc.h>

namespace {

constexpr int kParts = 10000;

double bytesInUse() {
    const struct mallinfo2 info = mallinfo2();
    return static_cast<double>(info.uordblks + info.hblkhd);
}

/// Bytes per part of `parts`, including the allocator's overhead, against `baseline`.
template <class Make>
OrvelBench::Comparison measure(int parts, double baseline, Make&& make) {
    Orvel::World world;
    const double before = bytesInUse();
    for (int i = 0; i < parts; ++i) {
        make(world);
    }
    OrvelBench::Pairs pairs;
    pairs.add((bytesInUse() - before) / parts, baseline);
    world.clearWorld();
    return pairs.medians();
}

} // namespace

int main(int argc, char** argv) {
    using OrvelBench::Aim;
    using OrvelBench::kBytes;
    OrvelBench::Report report("Memory for each part, against the bare object", argc, argv);
    constexpr double kEmitter = sizeof(Orvel::Emitter);
    constexpr double kSource = sizeof(Orvel::Source);

    report.row(
        "emitter", measure(kParts, kEmitter, [](auto& world) { world.createEmitter(); }), kBytes);
    report.row(
        "emitter with a label",
        measure(kParts, kEmitter, [](auto& world) { world.createEmitter({"front"}); }), kBytes);
    report.row(
        "source", measure(kParts, kSource, [](auto& world) { world.createSource(); }), kBytes);
    report.row(
        "source with its emitter",
        measure(
            kParts, kSource + kEmitter,
            [](auto& world) { world.createEmitter()->setSource(world.createSource()); }),
        kBytes);
    report.row(
        "source with a URL",
        measure(
            kParts, kSource,
            [](auto& world) { world.createSource()->setDataFromURL("file:///voices/left.wav"); }),
        kBytes);
    // Two copies would double it.
    const std::vector<unsigned char> samples = OrvelBench::tone();
    report.row(
        "source with a second of samples",
        measure(
            100, static_cast<double>(samples.size()),
            [&](auto& world) { OrvelBench::setSamples(*world.createSource(), samples); }),
        kBytes, {Aim::Of::Ratio, 1.05});
    return report.finish();
}
