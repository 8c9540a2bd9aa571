// A back end of the host's own, which keeps the loudest gain it has seen. An application registers
// a kind by a static BackendType; World::addBackend then knows its name.
#include <Orvel/BackendState.h>
#include <Orvel/BackendType.h>
#include <Orvel/Emitter.h>
#include <Orvel/SilentBackend.h>
#include <Orvel/World.h>

#include <algorithm>
#include <iostream>

namespace {

// SilentBackend does nothing for every change; a kind overrides the operations it needs.
class LoudestBackend : public Orvel::SilentBackend {
public:
    using SilentBackend::SilentBackend;

    void setEmitterParam(Orvel::Emitter& emitter) override {
        if (hasSameLabel(emitter)) {
            loudest_ = std::max(loudest_, emitter.gain());
        }
    }
    Orvel::BackendType* type() override { return &_type; }
    // For monitors, and for hosts that ask whether a back end works.
    [[nodiscard]] Orvel::BackendState state() const override {
        Orvel::BackendState state;
        state.device = "loudness meter";
        return state;
    }

    [[nodiscard]] float loudest() const { return loudest_; }

    static Orvel::Backend* createMethod(Orvel::World& world, const char* params) {
        return new LoudestBackend(world, params);
    }
    static Orvel::BackendType _type;

private:
    float loudest_ = 0.0F;
};

Orvel::BackendType LoudestBackend::_type("loudest", &LoudestBackend::createMethod);

} // namespace

int main() {
    Orvel::World world;
    auto* backend = dynamic_cast<LoudestBackend*>(world.addBackend("loudest", "labels=stage"));
    if (backend == nullptr) {
        return 1;
    }
    world.createEmitter({"stage"})->setParam(true, 0.0F, 0.25F);
    world.createEmitter({"stage"})->setParam(true, 0.0F, 0.75F);
    world.createEmitter({"foyer"})->setParam(true, 0.0F, 4.0F); // not this back end's label
    std::cout << "loudest gain on stage: " << backend->loudest() << " by the "
              << backend->state().device << '\n';
    const bool asExpected = backend->loudest() == 0.75F;

    world.clearWorld();
    world.deleteAllBackends();
    return asExpected ? 0 : 1;
}
