#pragma once

#include <Show/Cue.h>
#include <Show/player/Player.h>

#include <Orvel/World.h>

#include <cstddef>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Show {

/// Plays a file as its operator wants: from any time, cue by cue, with pauses. Maps the host's
/// clock to the time of the file. The world must outlive it. Confined to the world's thread.
class Transport {
public:
    Transport(Orvel::World& world, std::unique_ptr<Player> player, std::vector<Cue> cues);
    Transport(const Transport&) = delete;
    Transport& operator=(const Transport&) = delete;
    /// Leaves the parts in the world.
    ~Transport();

    [[nodiscard]] const std::vector<Cue>& cues() const { return cues_; }

    /// Plays from that time of the file, which the host's clock shows then.
    void start(double from);
    /// Prepares the sounds and waits for the first cue; the scene stops at the end of each. The
    /// host's clock shows 0.
    void arm();

    /// Plays the next cue, or without cues an armed file. Returns false if there is none.
    bool go();
    /// Plays the cue with this name. Returns false if there is none.
    bool cue(std::string_view name);
    /// Goes to a time of the file, and plays from there unless paused.
    void seek(double seconds);
    /// Halts the timeline and the sounds, or lets them go on.
    void pause(bool paused);

    /// Applies everything due up to this time of the host's clock, which must not decrease.
    void advance(double seconds);
    /// The time of the host's clock at which to advance next.
    [[nodiscard]] double nextStep() const;

    [[nodiscard]] double position() const { return position_; }
    [[nodiscard]] double end() const { return player_->end(); }
    /// The values set by hand; null if the player does not support them.
    [[nodiscard]] Overrides* overrides() const { return player_->overrides(); }
    [[nodiscard]] PlayState state() const;
    /// The present cue, or the next one; null if there is none.
    [[nodiscard]] const Cue* current() const;
    [[nodiscard]] const Cue* next() const;

private:
    struct Sounds;

    /// Brings the world to a time of the file.
    void place(double seconds);
    void play(std::size_t cue);
    [[nodiscard]] std::optional<std::size_t> cueAt(double seconds) const;
    [[nodiscard]] std::optional<std::size_t> currentIndex() const;
    [[nodiscard]] std::optional<std::size_t> nextIndex() const;
    void hold();
    void release();

    static constexpr double kNever = std::numeric_limits<double>::infinity();

    Orvel::World& world_;
    const std::unique_ptr<Player> player_;
    const std::vector<Cue> cues_;
    Sounds* sounds_ = nullptr; // a back end of the world, which knows the sounds that are over
    double position_ = 0.0;    // in the file
    double clock_ = 0.0;       // the host's
    double elapsed_ = 0.0;     // on that clock, over all starts
    double offset_ = 0.0;      // of the host's clock from the position, while it moves
    double limit_ = kNever;    // where to wait
    std::optional<std::size_t> cue_;
    bool armed_ = false;
    bool waiting_ = false;
    bool paused_ = false;
    bool hasOffsets_ = false;
    std::vector<int> held_; // emitters that pause() has paused
};

} // namespace Show
