#include <Show/player/SceneLength.h>

#include <Show/player/PlayClock.h>
#include <Show/player/ScenePlayer.h>

#include <Orvel/OwningWorld.h>
#include <Orvel/Source.h>

#include <algorithm>
#include <cmath>

namespace Show {

namespace {

/// The scene without changes that do not affect when and how fast sounds play.
Scene withoutMovement(const Scene& scene) {
    Scene result;
    result.sources = scene.sources;
    result.emitters = scene.emitters;
    for (const Change& change : scene.timeline) {
        if (change.target == Change::Target::Source ||
            (change.target == Change::Target::Emitter &&
             (change.newEmitter || change.destroy || change.reconnect || change.state))) {
            Change& kept = result.timeline.emplace_back(change);
            kept.position.reset();
            kept.rotation.reset();
            kept.hull = {};
            kept.gain.reset();
            kept.value.reset();
        }
    }
    return result;
}

} // namespace

double playingEnd(const Scene& scene, const SoundBank& sounds, Orvel::World& world) {
    double done = 0.0;
    for (const Change& change : scene.timeline) {
        done = std::max(done, change.at + change.over);
    }
    const Scene still = withoutMovement(scene);
    Orvel::OwningWorld<> shadow;
    auto* clock = new PlayClock(shadow); // the world deletes it
    ScenePlayer player(still, sounds, shadow, [&](Orvel::Source& source, const Sound& sound) {
        double length = 0.0;
        if (const auto shape = sounds.shapeOf(sound)) {
            length = shape->seconds;
        } else if (const Orvel::Source* original = world.getSource(source.id())) {
            length = original->duration();
        }
        clock->setLength(source.id(), length);
    });
    player.start();
    double now = 0.0;
    for (;;) {
        const double next = player.nextChange(now);
        if (!std::isfinite(next)) {
            return std::max(done, clock->end());
        }
        clock->passTo(next, player.pitchRamps());
        player.advance(next);
        now = next;
    }
}

} // namespace Show
