#pragma once

#include "player/ScenePlayer.h"
#include "player/Stage.h"
#include "scene/LoadedScene.h"

#include <Orvel/OALLoopbackBackend.h>

#include <cstdint>
#include <span>
#include <vector>

namespace OrvelTool {

/// Renders a scene block by block, as fast as the caller asks for it. Changes of the scene fall on
/// the nearest frame. Confined to one thread at a time; scene and messages must outlive it.
class OfflineRenderer {
public:
    /// Opens the loopback device, `rate` in Hz, and starts the scene; that fetches its URLs.
    OfflineRenderer(const LoadedScene& loaded, LibraryMessages& messages, unsigned rate);

    /// False when the device could not be opened; next() then gives nothing.
    [[nodiscard]] bool working() const;
    /// The scene's own end in seconds, see ScenePlayer::end().
    [[nodiscard]] double sceneEnd() const { return player_.end(); }

    /// The next frames, left and right in turn, never beyond `end` seconds; empty when that is
    /// reached. Valid until the next call.
    std::span<const float> next(double end);

    [[nodiscard]] std::uint64_t frames() const noexcept { return frames_; }
    [[nodiscard]] Stage& stage() noexcept { return stage_; }

private:
    double nextStop(double end) const;

    Stage stage_;
    Orvel::OALLoopbackBackend* backend_; // the stage's
    ScenePlayer player_;
    double rate_;
    double now_ = 0.0; // up to where frames_ are rendered and, unless late_, the scene has moved
    bool late_ = false;
    std::uint64_t frames_ = 0;
    std::vector<float> samples_;
};

} // namespace OrvelTool
