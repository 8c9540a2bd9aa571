#pragma once

#include <Show/player/Playable.h>

#include <Orvel/OALLoopbackBackend.h>

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace Show {

/// Renders what is played block by block, as fast as the caller asks for it. Changes fall on the
/// nearest frame. Confined to one thread at a time; what is played must outlive it.
class OfflineRenderer {
public:
    /// Opens the loopback device, `rate` in Hz, and starts to play; that fetches a scene's URLs.
    OfflineRenderer(const Playable& what, SetSubject setSubject, unsigned rate);

    /// False when the device could not be opened; next() then gives nothing.
    [[nodiscard]] bool working() const;
    /// When all is over, in seconds, see Player::end().
    [[nodiscard]] double end() const { return player_->end(); }

    /// The next frames, left and right in turn, never beyond `end` seconds; empty when that is
    /// reached. Valid until the next call.
    std::span<const float> next(double end);

    /// Up to where the sound is rendered.
    [[nodiscard]] double seconds() const noexcept { return now_; }
    [[nodiscard]] Stage& stage() noexcept { return *stage_; }

private:
    double nextStop(double end) const;

    std::unique_ptr<Stage> stage_;
    Orvel::OALLoopbackBackend* backend_; // the stage's
    std::unique_ptr<Player> player_;
    double rate_;
    double now_ = 0.0; // up to where frames_ are rendered and, unless late_, the world has moved
    bool late_ = false;
    std::uint64_t frames_ = 0;
    std::vector<float> samples_;
};

} // namespace Show
