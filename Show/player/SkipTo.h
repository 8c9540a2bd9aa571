#pragma once

#include <Show/player/Player.h>

#include <Orvel/World.h>

namespace Show {

/// Starts a player and brings its world to a time at once. Each emitter's start offset is then how
/// far its sound would have been played, so that back ends which are added next, or brought up to
/// date, begin with every sound at its place; see clearOffsets().
void skipTo(double seconds, Player& player, Orvel::World& world);

/// Lets sounds begin at their beginnings again.
void clearOffsets(Orvel::World& world);

} // namespace Show
