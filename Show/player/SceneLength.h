#pragma once

#include <Show/scene/Scene.h>
#include <Show/scene/SoundBank.h>

#include <Orvel/World.h>

namespace Show {

/// When the timeline of a scene is over and every sound that plays then has ended, a looped one
/// after playing once; in seconds from the start. Plays the scene through in a world of its own,
/// without sound. `world`, which holds the scene, knows the lengths of URLs that a back end has
/// fetched; others count as 0.
double playingEnd(const Scene& scene, const SoundBank& sounds, Orvel::World& world);

} // namespace Show
