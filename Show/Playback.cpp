#include <Show/Playback.h>

#include <Show/player/Playable.h>
#include <Show/player/ScenePlayer.h>
#include <Show/player/Transport.h>

#include <cmath>
#include <exception>
#include <utility>

namespace Show {

struct Playback::State {
    ShowFile file;
    std::string error;
    std::shared_ptr<Transport> transport; // null if there is an error
};

static_assert(Playback::kTick == ScenePlayer::kTick);

Playback::Playback(Orvel::World& world, ShowFile file) : Playback(world, std::move(file), false) {}

Playback::Playback(Orvel::World& world, ShowFile file, bool voicesFollow)
    : state_(new State{std::move(file), {}, nullptr}) {
    if (!state_->file.isGood()) {
        const auto& problems = state_->file.problems();
        state_->error = problems.empty() ? "nothing was loaded" : problems.front().str();
        return;
    }
    try {
        state_->transport = std::make_shared<Transport>(
            world,
            state_->file.playable()->makePlayer(
                world, voicesFollow ? LongFiles::ByPath : LongFiles::AsNeeded),
            state_->file.cues());
    } catch (const std::exception& fault) {
        state_->error = fault.what();
    }
}

Playback::~Playback() = default;

bool Playback::isGood() const noexcept {
    return state_->transport != nullptr;
}

const std::string& Playback::error() const noexcept {
    return state_->error;
}

const std::vector<Cue>& Playback::cues() const {
    static const std::vector<Cue> none;
    return isGood() ? state_->transport->cues() : none;
}

void Playback::start(double from) {
    if (isGood()) {
        state_->transport->start(from);
    }
}

void Playback::arm() {
    if (isGood()) {
        state_->transport->arm();
    }
}

bool Playback::go() {
    return isGood() && state_->transport->go();
}

bool Playback::cue(std::string_view name) {
    return isGood() && state_->transport->cue(name);
}

void Playback::seek(double seconds) {
    if (isGood() && std::isfinite(seconds)) {
        state_->transport->seek(seconds);
    }
}

void Playback::pause(bool paused) {
    if (isGood()) {
        state_->transport->pause(paused);
    }
}

void Playback::advance(double seconds) {
    if (isGood()) {
        state_->transport->advance(seconds);
    }
}

double Playback::nextStep() const {
    return isGood() ? state_->transport->nextStep() : 0.0;
}

double Playback::position() const {
    return isGood() ? state_->transport->position() : 0.0;
}

PlayState Playback::state() const {
    return isGood() ? state_->transport->state() : PlayState::Over;
}

const Cue* Playback::currentCue() const {
    return isGood() ? state_->transport->current() : nullptr;
}

const Cue* Playback::nextCue() const {
    return isGood() ? state_->transport->next() : nullptr;
}

Overrides* Playback::overrides() const noexcept {
    return isGood() ? state_->transport->overrides() : nullptr;
}

double Playback::end() const {
    return isGood() ? state_->transport->end() : 0.0;
}

const std::shared_ptr<Transport>& Playback::transport() const noexcept {
    return state_->transport;
}

} // namespace Show
