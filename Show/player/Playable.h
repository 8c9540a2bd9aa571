#pragma once

#include <Show/player/Player.h>
#include <Show/scene/LoadedScene.h>
#include <Show/scene/SceneSources.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

namespace Show {

/// The playable contents of a file, for any number of worlds. It must outlive everything it makes.
/// Confined to one thread at a time.
class Playable {
public:
    Playable() = default;
    Playable(const Playable&) = delete;
    Playable& operator=(const Playable&) = delete;
    virtual ~Playable() = default;

    /// Creates its player for a world, which must outlive the player. Throws std::runtime_error if
    /// the file has gone since it was loaded.
    [[nodiscard]] virtual std::unique_ptr<Player>
    makePlayer(Orvel::World& world, LongFiles longFiles) const = 0;
    /// Sets the length of a source's sound, in seconds; 0 if it is not known.
    using SetLength = std::function<void(int source, double seconds)>;
    /// As makePlayer(), for a world without sounds: it gives sources none, fetches nothing and
    /// reports nothing.
    [[nodiscard]] virtual std::unique_ptr<Player>
    makeSilentPlayer(Orvel::World& world, SetLength setLength) const = 0;
    /// The largest number of emitters.
    [[nodiscard]] virtual std::size_t emitters() const = 0;
    /// Its sources with their sounds.
    [[nodiscard]] virtual const Scene& sources() const = 0;
    /// The scene, or null if it is not one.
    [[nodiscard]] virtual const LoadedScene* scene() const { return nullptr; }
    /// Further parameters of the kind "voices", with which it is to be rendered.
    [[nodiscard]] virtual std::string voicesParams() const { return {}; }
    /// Whether part of it was unavailable, which has been reported.
    [[nodiscard]] virtual bool incomplete() const { return false; }
    /// Number of its sounds by URL that were left out because nothing may be fetched.
    [[nodiscard]] virtual std::size_t unfetched() const { return 0; }
};

} // namespace Show
