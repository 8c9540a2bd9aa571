// The smallest program that plays a sound: a recorded voice, ahead and to the left.
#include <Orvel/Emitter.h>
#include <Orvel/Source.h>
#include <Orvel/World.h>

#include <chrono>
#include <thread>

int main() {
    Orvel::World world;
    world.addBackend("default", ""); // OpenAL, on this machine's sound device

    Orvel::Source* voice = world.createSource();
    voice->setDataFromURL("/usr/share/sounds/alsa/Front_Left.wav"); // a mono file

    Orvel::Emitter* emitter = world.createEmitter();
    const Orvel::Vec3f aheadLeft{-2.0F, 0.0F, -2.0F};
    emitter->setTransform(&aheadLeft, nullptr);
    emitter->setHull(50.0F, 50.0F, 1.0F, 1.0F); // full level up to 1 unit away, fading up to 50
    emitter->setSource(voice);
    emitter->setState(Orvel::Emitter::PLAY);

    std::this_thread::sleep_for(std::chrono::seconds(2)); // a host runs its frame loop here

    world.clearWorld();
    world.deleteAllBackends();
}
