#include <Show/player/SkipTo.h>

#include <Show/player/PlayClock.h>

#include <Orvel/Emitter.h>

#include <algorithm>
#include <memory>

namespace Show {

void skipTo(double seconds, Player& player, Orvel::World& world) {
    const auto clock = std::make_unique<PlayClock>(world);
    player.start();
    for (double now = 0.0; now < seconds;) {
        now = std::min(player.nextChange(now), seconds);
        clock->passTo(now, player.pitchRamps());
        player.advance(now);
    }
    for (const auto& [id, emitter] : world.emitters()) {
        emitter->setStartOffset(clock->played(*emitter));
    }
}

void clearOffsets(Orvel::World& world) {
    for (const auto& [id, emitter] : world.emitters()) {
        emitter->setStartOffset(0.0);
    }
}

} // namespace Show
