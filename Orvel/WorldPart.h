#pragma once

#include <cstdint>

#include <orvel_export.h>

namespace Orvel {

class World;

/// The common part of sources and emitters: their world, their id and their play state.
///
/// The constructor adds a part to its world's map and the destructor removes it, so a part is
/// destroyed with `delete`; `World::clearWorld()` deletes those that are left. Confined to one
/// thread at a time, together with its world.
class ORVEL_EXPORT WorldPart {
public:
    enum State : int { NONE = 0, PLAY = 1, PAUSE = 2, STOP = 3 };

    WorldPart(World& world, int id);
    /// Only reports misuse: logs, and creates a part with id -1 that is in no map.
    WorldPart(const WorldPart& other);
    WorldPart& operator=(const WorldPart&) = delete;

    virtual ~WorldPart() = default;

    /// Changes the state and notifies the back ends; setting an equal state has no effect. The
    /// state spreads between a source and the emitters connected to it.
    virtual void setState(State state) = 0;

    [[nodiscard]] World& world() const noexcept { return world_; }
    [[nodiscard]] int id() const noexcept { return id_; }
    [[nodiscard]] State state() const noexcept { return static_cast<State>(state_); }
    /// The state before its last change.
    [[nodiscard]] State previousState() const noexcept {
        return static_cast<State>(previousState_);
    }

protected:
    /// Stores a new state and keeps the previous one. Returns false, without effect, if it is
    /// equal.
    bool changeState(State state) noexcept;

private:
    World& world_;
    int id_;
    // Each a State, in few bytes, so that an emitter fits in two cache lines.
    std::int8_t state_ = NONE;
    std::int8_t previousState_ = NONE;
};

} // namespace Orvel
