#include <Show/Playback.h>

#include <Show/player/Playable.h>
#include <Show/player/ScenePlayer.h>
#include <Show/player/SkipTo.h>

#include <Orvel/Backend.h>

#include <algorithm>
#include <exception>
#include <utility>

namespace Show {

struct Playback::State {
    Orvel::World& world;
    ShowFile file;
    std::string error;
    std::unique_ptr<Player> player; // null if there is an error
    double now = 0.0;
    bool hasOffsets = false;
};

static_assert(Playback::kTick == ScenePlayer::kTick);

Playback::Playback(Orvel::World& world, ShowFile file) : Playback(world, std::move(file), false) {}

Playback::Playback(Orvel::World& world, ShowFile file, bool voicesFollow)
    : state_(new State{world, std::move(file), {}, nullptr}) {
    if (!state_->file.isGood()) {
        const auto& problems = state_->file.problems();
        state_->error = problems.empty() ? "nothing was loaded" : problems.front().str();
        return;
    }
    try {
        state_->player = state_->file.playable()->makePlayer(
            world, voicesFollow ? LongFiles::ByPath : LongFiles::AsNeeded);
    } catch (const std::exception& fault) {
        state_->error = fault.what();
    }
}

Playback::~Playback() = default;

bool Playback::isGood() const noexcept {
    return state_->player != nullptr;
}

const std::string& Playback::error() const noexcept {
    return state_->error;
}

void Playback::start(double from) {
    State& state = *state_;
    if (!isGood()) {
        return;
    }
    state.now = std::max(from, 0.0);
    state.hasOffsets = state.now > 0.0;
    if (!state.hasOffsets) {
        state.player->start();
        return;
    }
    skipTo(state.now, *state.player, state.world);
    for (Orvel::Backend* backend : state.world.backends()) {
        backend->resetBackend();
        state.world.initBackendState(*backend);
    }
}

void Playback::advance(double seconds) {
    State& state = *state_;
    if (!isGood()) {
        return;
    }
    if (std::exchange(state.hasOffsets, false)) {
        clearOffsets(state.world);
    }
    state.now = std::max(state.now, seconds);
    state.player->advance(state.now);
}

double Playback::nextStep() const {
    if (!isGood()) {
        return 0.0;
    }
    const double change = state_->player->nextChange(state_->now);
    return state_->player->moving() ? std::min(change, state_->now + kTick) : change;
}

double Playback::end() const {
    return isGood() ? state_->player->end() : 0.0;
}

} // namespace Show
