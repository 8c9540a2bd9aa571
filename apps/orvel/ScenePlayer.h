#pragma once

#include "Scene.h"
#include "SoundBank.h"

#include <Orvel/World.h>

#include <cstddef>
#include <map>
#include <optional>

namespace OrvelTool {

/// Puts a scene into a world and moves it through its timeline. It keeps no time itself: the caller
/// says how late it is, so the same player serves real time and faster.
///
/// The scene, the sounds and the world must outlive it. Confined to the world's thread. Nothing can
/// fail; what a back end cannot do, it logs.
class ScenePlayer {
public:
    /// How often, in seconds, advance() wants to be called while something moves.
    static constexpr double kTick = 0.01;

    ScenePlayer(const Scene& scene, const SoundBank& sounds, Orvel::World& world);

    /// Empties the world, creates the scene's parts and applies what is due at time 0. Back ends
    /// are best added before. May be called again, to start over.
    void start();

    /// Applies everything that is due up to and including this time, in seconds from the start.
    /// What moves takes its place at that time. Times must not go down.
    void advance(double seconds);

    /// The next time after `seconds` at which advance() must be called exactly then: an entry of
    /// the timeline or the end of a movement. Infinity when there is none.
    [[nodiscard]] double nextChange(double seconds) const;

    /// Whether something moves, so that calls each kTick make a difference.
    [[nodiscard]] bool moving() const;

    /// When the scene is over, in seconds: its duration; without one, when the timeline is done and
    /// every sound that plays then has ended, a looped one having played once. Call it after
    /// start(): the lengths of URLs are known then, if a back end has fetched them.
    [[nodiscard]] double end() const;
};

} // namespace OrvelTool
