#pragma once

#include <Show/Cue.h>
#include <Show/ShowFile.h>

#include <Orvel/World.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <orvel_show_export.h>

namespace Show {

class Overrides;
class Transport;

/// "waiting", "playing", "paused" or "over".
[[nodiscard]] constexpr const char* nameOf(PlayState state) noexcept {
    switch (state) {
    case PlayState::Waiting:
        return "waiting";
    case PlayState::Playing:
        return "playing";
    case PlayState::Paused:
        return "paused";
    case PlayState::Over:
        break;
    }
    return "over";
}

/// Plays a scene or a capture on a world: puts its parts there and moves them through time. It has
/// no clock, so the same class serves real time, faster playback and offline rendering:
///
///     playback.start();
///     while (clock.seconds() < playback.end()) {
///         playback.advance(clock.seconds());
///         world.update();
///         sleepUntil(playback.nextStep());
///     }
///
/// The world must outlive it; it leaves its parts there. Confined to the world's thread. Throws
/// nothing; a back end logs its own failures, such as a URL that cannot be fetched.
class ORVEL_SHOW_EXPORT Playback {
public:
    /// The recommended interval of advance(), in seconds, while something moves.
    static constexpr double kTick = 0.01;

    /// A file that is not good plays nothing.
    Playback(Orvel::World& world, ShowFile file);
    /// `voicesFollow`: the back ends that are added after start() are of the kind "voices", so long
    /// sound files need not be decoded for them.
    Playback(Orvel::World& world, ShowFile file, bool voicesFollow);
    Playback(const Playback&) = delete;
    Playback& operator=(const Playback&) = delete;
    ~Playback();

    /// Whether there is something to play. If not, error() has the reason, all other functions do
    /// nothing, and times are 0.
    [[nodiscard]] bool isGood() const noexcept;
    [[nodiscard]] const std::string& error() const noexcept;

    /// The cues of the file; empty for a capture. Valid as long as this object.
    [[nodiscard]] const std::vector<Cue>& cues() const;

    /// Clears the world and brings it to the time `from` of the file, in seconds from 0. The back
    /// ends receive the resulting scene, those too that are added after this and before advance(),
    /// with every sound at its current position (servers, with the kind "client": at its
    /// beginning). May be called again to start over. Not inside World::update(); nor are go(),
    /// cue() and seek().
    void start(double from = 0.0);
    /// Clears the world, loads the initial sounds and waits for go(), cue() or seek(). The scene
    /// then stops at the end of each cue and waits for the next; looped sounds go on meanwhile. The
    /// clock that advance() receives begins at 0. May be called in place of start(), at any time.
    void arm();
    /// Plays the next cue of the scene, in the order of its file; a cue that follows the one before
    /// goes on without a break, others start as seek() does. An armed file without cues plays from
    /// its beginning. Returns false, without effect, if there is no further cue.
    bool go();
    /// Plays the cue with this name. Returns false, without effect, if there is none.
    bool cue(std::string_view name);
    /// Goes to a time of the file, in seconds from 0, as start(from) does, and plays on from there
    /// unless paused.
    void seek(double seconds);
    /// Halts the timeline and pauses the sounds that play, or lets both go on. go() and cue() end a
    /// pause.
    void pause(bool paused);

    /// Applies everything due up to and including this time, in seconds of the host's clock, which
    /// shows the time of the file until arm(), go(), cue(), seek() or pause() is called. Times must
    /// not decrease.
    void advance(double seconds);

    /// The next time at which to call advance(): the exact time of a change, or the next tick while
    /// something moves. Infinity if nothing is left, and while it waits or is paused.
    [[nodiscard]] double nextStep() const;
    /// The time of the file, in seconds, as of the latest advance() or jump.
    [[nodiscard]] double position() const;
    [[nodiscard]] PlayState state() const;
    /// The present cue, and the one that go() would play. Null if there is none; valid as long as
    /// this object.
    [[nodiscard]] const Cue* currentCue() const;
    [[nodiscard]] const Cue* nextCue() const;
    /// The end in seconds: a scene's duration or, without one, the time when its timeline is over
    /// and every sound that plays then has ended. Valid after start(); it may grow when a back end
    /// has fetched a sound.
    [[nodiscard]] double end() const;

    /// For the other classes of this library; null if it is not good.
    [[nodiscard]] const std::shared_ptr<Transport>& transport() const noexcept;
    /// For the other classes of this library; null if nothing can be changed.
    [[nodiscard]] Overrides* overrides() const noexcept;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace Show
