#include <Show/desk/Activity.h>

#include <Show/monitor/JsonWriter.h>
#include <Show/player/PlayClock.h>

#include <Orvel/Emitter.h>
#include <Orvel/Source.h>

#include <chrono>
#include <set>
#include <utility>

namespace Show {

/// Counts the changes, and the emitters that sound, from one take() to the next.
class Activity::Counter : public PlayClock {
public:
    using PlayClock::PlayClock;

    Column take() {
        const Column column{sounding_.size(), std::exchange(changes_, 0)};
        sounding_.clear();
        for (const auto& [id, emitter] : world().emitters()) {
            add(*emitter);
        }
        return column;
    }

    void setListenerTransform() override { ++changes_; }
    void setEmitterTransform(Orvel::Emitter& /*emitter*/) override { ++changes_; }
    void setEmitterHull(Orvel::Emitter& /*emitter*/) override { ++changes_; }
    void setEmitterParam(Orvel::Emitter& emitter) override {
        ++changes_;
        add(emitter);
    }
    void setEmitterState(Orvel::Emitter& emitter) override {
        ++changes_;
        PlayClock::setEmitterState(emitter);
        add(emitter);
    }

private:
    void add(const Orvel::Emitter& emitter) {
        if (emitter.state() == Orvel::WorldPart::PLAY && emitter.gain() > 0.0F &&
            emitter.source() != nullptr && !isOver(emitter)) {
            sounding_.insert(emitter.id());
        }
    }

    std::set<int> sounding_; // ids
    std::uint64_t changes_ = 0;
};

Activity::Activity(const Playable& file, double end)
    : end_(end), counter_(new Counter(world_)), // the world deletes it
      player_(file.makeSilentPlayer(
          world_, [this](int source, double seconds) { counter_->setLength(source, seconds); })) {
    player_->start();
    counter_->take(); // the parts that come at the start are no changes
}

Activity::~Activity() = default;

void Activity::moveTo(double seconds) {
    counter_->passTo(seconds, player_->pitchRamps());
    player_->advance(seconds);
    now_ = seconds;
}

bool Activity::advance() {
    using std::chrono::steady_clock;
    const auto deadline = steady_clock::now() + std::chrono::milliseconds(kMaxPieceMs);
    while (columns_.size() < kColumns && steady_clock::now() < deadline) {
        const double columnEnd = end_ * static_cast<double>(columns_.size() + 1) / kColumns;
        const double next = player_->nextChange(now_);
        if (next <= columnEnd) {
            moveTo(next);
        } else {
            moveTo(columnEnd);
            columns_.push_back(counter_->take());
        }
    }
    return columns_.size() < kColumns;
}

void Activity::write(std::string& out) const {
    JsonWriter json(out);
    json.open('{').field("end", end_).key("sounding").open('[');
    for (const Column& column : columns_) {
        json.value(column.sounding);
    }
    json.close(']').key("changes").open('[');
    for (const Column& column : columns_) {
        json.value(column.changes);
    }
    json.close(']').close('}');
}

} // namespace Show
