#pragma once

#include <Show/ShowFile.h>

#include <Orvel/World.h>

#include <memory>
#include <string>

#include <orvel_show_export.h>

namespace Show {

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

    /// Clears the world and brings it to the time `from` of the file, in seconds from 0. Back ends
    /// that exist already receive every change on the way, and then the scene again; those that are
    /// added after this and before advance() receive only the resulting scene. Both start with
    /// every sound at its current position (servers, with the kind "client": at its beginning). May
    /// be called again to start over.
    void start(double from = 0.0);
    /// Applies everything due up to and including this time of the file, in seconds. Times must not
    /// decrease.
    void advance(double seconds);

    /// The next time at which to call advance(): the exact time of a change, or the next tick while
    /// something moves. Infinity if nothing is left.
    [[nodiscard]] double nextStep() const;
    /// The end in seconds: a scene's duration or, without one, the time when its timeline is over
    /// and every sound that plays then has ended. Valid after start(); it may grow when a back end
    /// has fetched a sound.
    [[nodiscard]] double end() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace Show
