#include <Show/player/Transport.h>

#include <Show/player/PlayClock.h>
#include <Show/player/ScenePlayer.h>
#include <Show/player/SkipTo.h>

#include <Orvel/Backend.h>
#include <Orvel/Emitter.h>
#include <Orvel/SilentBackend.h>
#include <Orvel/Source.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace Show {

namespace {

/// A change that is due within this time is applied: the conversion of times rounds.
constexpr double kRounding = 1e-9;

} // namespace

/// The host may delete it with the other back ends.
struct Transport::Sounds : PlayClock {
    explicit Sounds(Transport& transport) : PlayClock(transport.world_), transport_(transport) {}
    Sounds(const Sounds&) = delete;
    Sounds& operator=(const Sounds&) = delete;
    ~Sounds() override { transport_.sounds_ = nullptr; }

private:
    Transport& transport_;
};

Transport::Transport(Orvel::World& world, std::unique_ptr<Player> player, std::vector<Cue> cues)
    : world_(world), player_(std::move(player)), cues_(std::move(cues)) {}

Transport::~Transport() {
    delete sounds_;
}

void Transport::place(double seconds) {
    if (sounds_ == nullptr) {
        sounds_ = new Sounds(*this); // the world has it
        world_.initBackendState(*sounds_);
    }
    held_.clear();
    position_ = seconds;
    offset_ = clock_ - seconds;
    waiting_ = false;
    limit_ = kNever;
    hasOffsets_ = seconds > 0.0;
    if (!hasOffsets_) {
        player_->start();
        return;
    }
    // The steps of the way would be heard, and cost a client's network. Clocks need them.
    world_.replaceScene(
        [this, seconds] { skipTo(seconds, *player_, world_); },
        [](const Orvel::Backend& backend) {
            return dynamic_cast<const Orvel::SilentBackend*>(&backend) != nullptr;
        });
}

void Transport::start(double from) {
    clock_ = std::max(from, 0.0);
    armed_ = paused_ = false;
    cue_.reset();
    place(clock_);
}

void Transport::arm() {
    clock_ = 0.0;
    paused_ = false;
    armed_ = true;
    cue_.reset();
    held_.clear();
    position_ = 0.0;
    player_->prepare();
    waiting_ = true;
}

bool Transport::go() {
    if (const auto next = nextIndex()) {
        play(*next);
        return true;
    }
    if (!canGo()) {
        return false;
    }
    paused_ = false;
    place(0.0);
    return true;
}

bool Transport::canGo() const {
    return nextIndex() || (cues_.empty() && armed_ && waiting_);
}

bool Transport::later(Command command) {
    if (commands_.size() >= kMaxCommands) {
        return false;
    }
    commands_.push_back(std::move(command));
    return true;
}

bool Transport::cue(std::string_view name) {
    const auto found = std::ranges::find(cues_, name, &Cue::name);
    if (found == cues_.end()) {
        return false;
    }
    play(static_cast<std::size_t>(found - cues_.begin()));
    return true;
}

void Transport::play(std::size_t cue) {
    const bool follows = waiting_ && cue_ && position_ == cues_[cue].at;
    double until = kNever;
    if (armed_) {
        until = cues_[cue].until;
    }
    paused_ = false;
    cue_ = cue;
    if (follows) { // everything sounds on
        release();
        waiting_ = false;
        player_->advance(position_);
    } else {
        place(cues_[cue].at);
    }
    limit_ = until;
}

void Transport::seek(double seconds) {
    place(std::max(seconds, 0.0));
    cue_ = cueAt(position_);
    if (armed_ && cue_) {
        limit_ = cues_[*cue_].until;
    } else if (armed_) {
        for (const Cue& cue : cues_) {
            limit_ = cue.at > position_ ? std::min(limit_, cue.at) : limit_;
        }
    }
    if (paused_) {
        hold();
    }
}

void Transport::pause(bool paused) {
    if (std::exchange(paused_, paused) == paused) {
        return;
    }
    if (paused) {
        hold();
    } else {
        release();
    }
}

void Transport::hold() {
    if (sounds_ != nullptr) {
        for (const auto& [id, source] : world_.sources()) {
            if (source->dataKind() == Orvel::Source::URL_SD) {
                sounds_->setLength(id, source->duration());
            }
        }
    }
    // A sound that is over would begin again.
    for (const auto& [id, emitter] : world_.emitters()) {
        if (emitter->state() == Orvel::Emitter::PLAY &&
            (sounds_ == nullptr || !sounds_->isOver(*emitter))) {
            held_.push_back(id);
        }
    }
    for (const int id : held_) {
        if (Orvel::Emitter* emitter = world_.getEmitter(id)) {
            emitter->setState(Orvel::Emitter::PAUSE);
        }
    }
}

void Transport::release() {
    offset_ = clock_ - position_;
    for (const int id : std::exchange(held_, {})) {
        Orvel::Emitter* emitter = world_.getEmitter(id);
        if (emitter != nullptr && emitter->state() == Orvel::Emitter::PAUSE) {
            emitter->setState(Orvel::Emitter::PLAY);
        }
    }
}

void Transport::advance(double seconds) {
    if (std::exchange(hasOffsets_, false)) {
        clearOffsets(world_);
    }
    const double passed = std::max(seconds - clock_, 0.0);
    elapsed_ += passed;
    clock_ += passed;
    if (sounds_ != nullptr) {
        sounds_->passTo(elapsed_, {});
    }
    for (const Command& command : std::exchange(commands_, {})) {
        command(*this);
    }
    if (waiting_ || paused_) {
        return;
    }
    double to = std::max(position_, clock_ - offset_);
    const double change = std::min(player_->nextChange(position_), limit_);
    if (change > to && change - to < kRounding) {
        to = change;
    }
    if (to < limit_) {
        position_ = to;
        player_->advance(position_);
    } else {
        // Changes at the limit belong to the cue that begins there.
        player_->advance(std::nextafter(limit_, 0.0));
        position_ = limit_;
        waiting_ = true;
    }
}

double Transport::nextStep() const {
    if (!commands_.empty()) {
        return clock_;
    }
    if (waiting_ || paused_) {
        return kNever;
    }
    double next = std::min(player_->nextChange(position_), limit_);
    if (player_->moving()) {
        next = std::min(next, position_ + ScenePlayer::kTick);
    }
    return next + offset_;
}

PlayState Transport::state() const {
    return paused_              ? PlayState::Paused
           : waiting_           ? PlayState::Waiting
           : position_ >= end() ? PlayState::Over
                                : PlayState::Playing;
}

std::optional<std::size_t> Transport::cueAt(double seconds) const {
    const auto found = std::ranges::find_if(
        cues_, [seconds](const Cue& cue) { return cue.at <= seconds && seconds < cue.until; });
    return found == cues_.end() ? std::nullopt
                                : std::optional(static_cast<std::size_t>(found - cues_.begin()));
}

std::optional<std::size_t> Transport::currentIndex() const {
    if (waiting_ && !cue_) { // before the first
        return std::nullopt;
    }
    return cue_ && position_ <= cues_[*cue_].until ? cue_ : cueAt(position_);
}

std::optional<std::size_t> Transport::nextIndex() const {
    if (const auto current = currentIndex()) {
        return *current + 1 < cues_.size() ? std::optional(*current + 1) : std::nullopt;
    }
    for (std::size_t i = 0; i < cues_.size(); ++i) {
        if (waiting_ || cues_[i].at > position_) {
            return i;
        }
    }
    return std::nullopt;
}

const Cue* Transport::current() const {
    const auto index = currentIndex();
    return index ? &cues_[*index] : nullptr;
}

const Cue* Transport::next() const {
    const auto index = nextIndex();
    return index ? &cues_[*index] : nullptr;
}

} // namespace Show
