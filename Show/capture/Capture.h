#pragma once

#include <Show/player/Playable.h>
#include <Show/scene/LoadedScene.h>

#include <memory>
#include <string>
#include <vector>

namespace Show {

/// A recorded session of a sound server, with the sources that the server had.
class Capture : public Playable {
public:
    /// Opens a capture and decodes its sounds. What cannot be played becomes a problem, and so does
    /// a file that is cut. Sounds by URL stay silent, with a problem, without `fetch`: it is for
    /// captures from people that the user trusts. Null if nothing can be played.
    [[nodiscard]] static std::unique_ptr<const Capture>
    load(const std::string& path, bool fetch, std::vector<Problem>& problems);

    [[nodiscard]] std::unique_ptr<Stage> makeStage(SetSubject setSubject) const override;
    [[nodiscard]] std::unique_ptr<Player> makePlayer(Stage& stage) const override;
    [[nodiscard]] std::size_t emitters() const override;
    [[nodiscard]] const Scene& sources() const override { return bank_.scene; }
    [[nodiscard]] bool incomplete() const override { return incomplete_; }

private:
    explicit Capture(std::string path) : path_(std::move(path)) {}

    std::string path_;
    LoadedScene bank_;
    bool incomplete_ = false;
};

/// Loads a scene or a capture, whichever the file is. Null, with problems, if it cannot be played.
/// `fetch` is for captures, see there.
std::unique_ptr<const Playable>
loadPlayable(const std::string& path, bool fetch, std::vector<Problem>& problems);

} // namespace Show
