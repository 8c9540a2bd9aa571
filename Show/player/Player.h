#pragma once

#include <Show/scene/Ramp.h>

#include <map>

namespace Show {

/// What moves a world through time. It keeps no time itself: the caller says how late it is, so the
/// same player serves real time and faster. Confined to the world's thread.
class Player {
public:
    Player() = default;
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;
    virtual ~Player() = default;

    /// Empties the world and applies what is due at time 0. Back ends are best added before. May
    /// be called again, to start over.
    virtual void start() = 0;

    /// Applies everything that is due up to and including this time, in seconds from the start.
    /// Times must not go down.
    virtual void advance(double seconds) = 0;

    /// The next time after `seconds` at which advance() must be called exactly then. Infinity when
    /// there is none.
    [[nodiscard]] virtual double nextChange(double seconds) const = 0;

    /// Whether something moves between such times, so that regular calls make a difference.
    [[nodiscard]] virtual bool moving() const = 0;

    /// The pitches that are changing, by the id of their source.
    [[nodiscard]] virtual std::map<int, Ramp<float>> pitchRamps() const { return {}; }

    /// When all is over, in seconds; to be called after start().
    [[nodiscard]] virtual double end() const = 0;
};

} // namespace Show
