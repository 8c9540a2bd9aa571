#pragma once

#include <orvel_export.h>

namespace Orvel {

class World;

/// What sources and emitters share: their world, their id and a play state.
///
/// A part enters its world's map in its own constructor and leaves it in its destructor, so
/// `delete` is how a part is destroyed; `World::clearWorld()` deletes those that are left.
/// Confined to one thread at a time, together with its world.
class ORVEL_EXPORT WorldPart {
public:
    enum State : int { NONE = 0, PLAY = 1, PAUSE = 2, STOP = 3 };

    WorldPart(World& world, int id);
    /// Exists only to report misuse: logs, and makes a part with id -1 that is in no map.
    WorldPart(const WorldPart& other);
    WorldPart& operator=(const WorldPart&) = delete;

    virtual ~WorldPart() = default;

    /// Changes the state and tells the back ends; an equal state changes and tells nothing. The
    /// state spreads between a source and the emitters connected to it.
    virtual void setState(State state) = 0;

    [[nodiscard]] World& world() const noexcept { return world_; }
    [[nodiscard]] int id() const noexcept { return id_; }
    [[nodiscard]] State state() const noexcept { return state_; }
    /// The state before its last change.
    [[nodiscard]] State previousState() const noexcept { return previousState_; }

protected:
    /// Stores a new state and keeps the former one; false, and nothing happens, if it is equal.
    bool changeState(State state) noexcept;

private:
    World& world_;
    int id_;
    State state_ = NONE;
    State previousState_ = NONE;
};

} // namespace Orvel
