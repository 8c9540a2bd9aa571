#pragma once

#include <Show/player/Playable.h>
#include <Show/render/FrameSource.h>

#include <Orvel/OwningWorld.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace Show {

/// Renders a playable block by block, as fast as the caller asks. Changes fall on the nearest
/// frame. Confined to one thread at a time; the playable must outlive it.
class OfflineRenderer {
public:
    /// Opens the device, see FrameSource, and starts to play, which fetches a scene's URLs.
    OfflineRenderer(
        const Playable& what, unsigned rate, const std::string& kind = "voices",
        const std::string& params = "");

    /// Returns false if the device could not be opened; next() is then always empty.
    [[nodiscard]] bool working() const;
    [[nodiscard]] const Orvel::OutputLayout& layout() const { return source_.layout(); }
    /// The end in seconds, see Player::end().
    [[nodiscard]] double end() const { return player_->end(); }

    /// The next interleaved frames in the layout, never beyond `end` seconds; empty at the end.
    /// Valid until the next call.
    std::span<const float> next(double end);

    /// The rendered time in seconds.
    [[nodiscard]] double seconds() const noexcept { return now_; }

private:
    double nextStop(double end) const;

    Orvel::OwningWorld<> world_;
    FrameSource source_;
    std::unique_ptr<Player> player_;
    double rate_;
    double now_ = 0.0; // end of frames_ and, unless late_, time of the world
    bool late_ = false;
    std::uint64_t frames_ = 0;
    std::vector<float> samples_;
};

} // namespace Show
