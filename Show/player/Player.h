#pragma once

#include <Show/scene/Ramp.h>

#include <map>

namespace Show {

class Overrides;

/// Moves a world through time. It has no clock: the caller gives the time, so the same player
/// serves real time and faster. Confined to the world's thread.
class Player {
public:
    Player() = default;
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;
    virtual ~Player() = default;

    /// Clears the world and gives it the initial sounds only, so that start() needs little time.
    virtual void prepare() = 0;

    /// Clears the world and applies everything due at time 0. Add back ends before. May be called
    /// again to start over.
    virtual void start() = 0;

    /// Applies everything due up to and including this time, in seconds from the start. Times must
    /// not decrease.
    virtual void advance(double seconds) = 0;

    /// The next time after `seconds` at which advance() must be called exactly. Infinity if there
    /// is none.
    [[nodiscard]] virtual double nextChange(double seconds) const = 0;

    /// Whether something moves between such times, so that regular calls are useful.
    [[nodiscard]] virtual bool moving() const = 0;

    /// The pitches that are changing, by source id.
    [[nodiscard]] virtual std::map<int, Ramp<float>> pitchRamps() const { return {}; }

    /// The values set by hand, in place of those of its timeline; null if it does not support them.
    [[nodiscard]] virtual Overrides* overrides() { return nullptr; }

    /// The end in seconds; call it after start().
    [[nodiscard]] virtual double end() const = 0;
};

} // namespace Show
