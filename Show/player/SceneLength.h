#pragma once

#include <Show/scene/Scene.h>
#include <Show/scene/SoundBank.h>

#include <Orvel/World.h>

namespace Show {

/// When the timeline of a scene is done and every sound that plays then has ended, a looped one
/// having played once; in seconds from the start. The scene is played through in a world of its own
/// for that, without sound. `world`, in which the scene stands, knows the lengths of the URLs that
/// a back end has fetched; the others count as nothing.
double playingEnd(const Scene& scene, const SoundBank& sounds, Orvel::World& world);

} // namespace Show
