// Renders without a sound card: a voice walks past the listener, from the left to the right, and
// the program prints the level of both channels twenty times a second.
#include <Orvel/Emitter.h>
#include <Orvel/OALLoopbackBackend.h>
#include <Orvel/Source.h>
#include <Orvel/World.h>

#include <cmath>
#include <cstdio>
#include <vector>

int main() {
    Orvel::World world;
    Orvel::OALLoopbackBackend::registerType();
    auto* backend =
        dynamic_cast<Orvel::OALLoopbackBackend*>(world.addBackend("loopback", "rate=48000"));
    if (backend == nullptr || !backend->working()) {
        return 1;
    }

    Orvel::Source* voice = world.createSource();
    voice->setDataFromURL("/usr/share/sounds/alsa/Front_Center.wav");
    Orvel::Emitter* emitter = world.createEmitter();
    emitter->setHull(50.0F, 50.0F, 1.0F, 1.0F);
    emitter->setSource(voice);
    emitter->setState(Orvel::Emitter::PLAY);

    constexpr unsigned kFramesPerBlock = 2400; // 0.05 s
    constexpr int kBlocks = 28;
    std::vector<float> block(std::size_t{kFramesPerBlock} * Orvel::OALLoopbackBackend::kChannels);
    for (int i = 0; i < kBlocks; ++i) {
        const Orvel::Vec3f position{-4.0F + 8.0F * static_cast<float>(i) / kBlocks, 0.0F, -1.0F};
        emitter->setTransform(&position, nullptr);
        backend->render(block.data(), kFramesPerBlock);

        double left = 0.0;
        double right = 0.0;
        for (std::size_t frame = 0; frame < kFramesPerBlock; ++frame) {
            left += std::pow(static_cast<double>(block[2 * frame]), 2.0);
            right += std::pow(static_cast<double>(block[2 * frame + 1]), 2.0);
        }
        std::printf(
            "x = %5.2f   left %.4f   right %.4f\n", static_cast<double>(position.x),
            std::sqrt(left / kFramesPerBlock), std::sqrt(right / kFramesPerBlock));
    }
    world.clearWorld();
    world.deleteAllBackends();
}
