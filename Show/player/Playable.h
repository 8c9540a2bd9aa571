#pragma once

#include <Show/player/Player.h>
#include <Show/player/Stage.h>

#include <cstddef>
#include <memory>

namespace Show {

/// What a file holds that can be played, in any number of worlds. It outlives what it makes.
/// Confined to one thread at a time.
class Playable {
public:
    Playable() = default;
    Playable(const Playable&) = delete;
    Playable& operator=(const Playable&) = delete;
    virtual ~Playable() = default;

    /// The world to play it in.
    [[nodiscard]] virtual std::unique_ptr<Stage> makeStage(SetSubject setSubject) const = 0;
    /// What plays it in a world that makeStage() gave, which must outlive it.
    [[nodiscard]] virtual std::unique_ptr<Player> makePlayer(Stage& stage) const = 0;
    /// How many emitters there are at most.
    [[nodiscard]] virtual std::size_t emitters() const = 0;
    /// The sources that it has, with their sounds.
    [[nodiscard]] virtual const Scene& sources() const = 0;
    /// The scene that it is, or null if it is something else.
    [[nodiscard]] virtual const LoadedScene* scene() const { return nullptr; }
    /// Whether something of it could not be had, which has been told.
    [[nodiscard]] virtual bool incomplete() const { return false; }
};

} // namespace Show
