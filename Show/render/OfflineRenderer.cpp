#include <Show/render/OfflineRenderer.h>

#include <Show/player/ScenePlayer.h>

#include <algorithm>
#include <cmath>

namespace Show {

namespace {

/// The longest block while nothing changes, in seconds.
constexpr double kStillStep = 0.1;

/// The first multiple of `step` after `time`.
double nextMultiple(double time, double step) {
    // Rounding may put a multiple slightly below itself.
    constexpr double kTolerance = 1e-6;
    return (std::floor(time / step + kTolerance) + 1.0) * step;
}

} // namespace

OfflineRenderer::OfflineRenderer(
    const Playable& what, unsigned rate, const std::string& kind, const std::string& params)
    : source_(
          world_, kind, kind == "voices" ? what.voicesParams() + ' ' + params : params, rate,
          what.emitters()),
      player_(what.makePlayer(world_, LongFiles::AsNeeded)), rate_(rate) {
    if (working()) {
        player_->start();
    }
}

bool OfflineRenderer::working() const {
    return source_.isWorking();
}

double OfflineRenderer::nextStop(double end) const {
    const double step = player_->moving() ? ScenePlayer::kTick : kStillStep;
    return std::min({end, player_->nextChange(now_), nextMultiple(now_, step)});
}

std::span<const float> OfflineRenderer::next(double end) {
    while (working() && now_ < end) {
        if (late_) {
            player_->advance(now_);
            world_.update();
        }
        now_ = nextStop(end);
        late_ = true;
        const auto due = static_cast<std::uint64_t>(std::llround(now_ * rate_));
        if (due > frames_) {
            const auto count = static_cast<unsigned>(due - frames_);
            samples_.resize(std::size_t{count} * layout().channels);
            source_.render(samples_.data(), count);
            frames_ = due;
            return samples_;
        }
    }
    return {};
}

} // namespace Show
