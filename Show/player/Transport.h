#pragma once

#include <Show/Cue.h>
#include <Show/player/Player.h>

#include <Orvel/World.h>

#include <cstddef>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Show {

/// Plays a file as its operator wants: from any time, cue by cue, with pauses. Maps the host's
/// clock to the time of the file. Playback describes the functions that have the same names there.
/// The world must outlive it. Confined to the world's thread.
class Transport {
public:
    /// Limit of the commands that wait for advance().
    static constexpr std::size_t kMaxCommands = 64;

    using Command = std::function<void(Transport& transport)>;

    Transport(Orvel::World& world, std::unique_ptr<Player> player, std::vector<Cue> cues);
    Transport(const Transport&) = delete;
    Transport& operator=(const Transport&) = delete;
    /// Leaves the parts in the world.
    ~Transport();

    [[nodiscard]] const std::vector<Cue>& cues() const { return cues_; }

    void start(double from);
    void arm();
    bool go();
    bool cue(std::string_view name);
    void seek(double seconds);
    void pause(bool paused);

    /// Runs a command in the next advance(): go(), cue() and seek() must not be called inside
    /// World::update(). Returns false, without effect, if kMaxCommands wait already.
    bool later(Command command);

    void advance(double seconds);
    [[nodiscard]] double nextStep() const;

    [[nodiscard]] double position() const { return position_; }
    [[nodiscard]] double end() const { return player_->end(); }
    /// The values set by hand; null if the player does not support them.
    [[nodiscard]] Overrides* overrides() const { return player_->overrides(); }
    [[nodiscard]] PlayState state() const;
    /// Null if there is none.
    [[nodiscard]] const Cue* current() const;
    [[nodiscard]] const Cue* next() const;
    /// Whether go() has an effect.
    [[nodiscard]] bool canGo() const;

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
    std::vector<Command> commands_;
};

} // namespace Show
