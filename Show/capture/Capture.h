#pragma once

#include <Show/capture/CaptureReader.h>
#include <Show/player/Playable.h>
#include <Show/scene/LoadedScene.h>

#include <memory>
#include <string>
#include <vector>

namespace Show {

/// A recorded session of a sound server, with the server's sources.
class Capture : public Playable {
public:
    /// Opens a capture and decodes its sounds. Anything that cannot be played becomes a problem, as
    /// does a truncated file. Without `fetch`, sounds by URL stay silent, with a problem; set it
    /// only for captures that the user trusts. Returns null if nothing can be played.
    [[nodiscard]] static std::unique_ptr<const Capture>
    load(const std::string& path, bool fetch, std::vector<Problem>& problems);

    [[nodiscard]] std::unique_ptr<Player>
    makePlayer(Orvel::World& world, LongFiles longFiles) const override;
    [[nodiscard]] std::unique_ptr<Player>
    makeSilentPlayer(Orvel::World& world, SetLength setLength) const override;
    [[nodiscard]] std::size_t emitters() const override;
    [[nodiscard]] const Scene& sources() const override { return bank_.scene; }
    [[nodiscard]] bool incomplete() const override { return incomplete_; }
    [[nodiscard]] std::size_t unfetched() const override { return unfetched_; }

private:
    explicit Capture(std::string path) : path_(std::move(path)) {}
    /// Throws std::runtime_error if the file has gone.
    [[nodiscard]] std::unique_ptr<CaptureReader> read() const;

    std::string path_;
    LoadedScene bank_;
    bool incomplete_ = false;
    std::size_t unfetched_ = 0;
};

/// Loads a scene or a capture, depending on the file. Returns null, with problems, if it cannot be
/// played. For `fetch` see Capture::load().
std::unique_ptr<const Playable>
loadPlayable(const std::string& path, bool fetch, std::vector<Problem>& problems);

} // namespace Show
