// A host that uses only the installed package: a back-end kind of its own, and a scene.
#include <Orvel/BackendType.h>
#include <Orvel/Emitter.h>
#include <Orvel/SilentBackend.h>
#include <Orvel/Source.h>
#include <Orvel/Version.h>
#include <Orvel/World.h>

#include <cstring>
#include <iostream>

namespace {

int transforms = 0;

class CountingBackend : public Orvel::SilentBackend {
public:
    using SilentBackend::SilentBackend;
    void setEmitterTransform(Orvel::Emitter& /*emitter*/) override { ++transforms; }
};

Orvel::Backend* createCounting(Orvel::World& world, const char* params) {
    return new CountingBackend(world, params);
}

const Orvel::BackendType countingType("counting", &createCounting);

} // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "--version") == 0) {
        std::cout << Orvel::version() << '\n';
        return 0;
    }
    Orvel::World world;
    world.addBackend("counting", "labels=front");
    Orvel::Emitter* emitter = world.createEmitter({"front"});
    const Orvel::Vec3f left{-1.0F, 0.0F, 0.0F};
    emitter->setTransform(&left, nullptr);
    world.clearWorld();
    world.deleteAllBackends();
    return transforms == 1 ? 0 : 1;
}
