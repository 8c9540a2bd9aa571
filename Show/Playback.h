#pragma once

#include <Show/ShowFile.h>

#include <Orvel/World.h>

#include <memory>
#include <string>

#include <orvel_show_export.h>

namespace Show {

/// Plays a scene or a capture on a world: puts its parts there and moves them through time. It
/// keeps no time itself, so the same class serves real time, faster, and offline:
///
///     playback.start();
///     while (clock.seconds() < playback.end()) {
///         playback.advance(clock.seconds());
///         world.update();
///         sleepUntil(playback.nextStep());
///     }
///
/// The world must outlive it; it leaves its parts there. Confined to the world's thread. Nothing is
/// thrown; what a back end cannot do, such as fetching a URL, it logs.
class ORVEL_SHOW_EXPORT Playback {
public:
    /// How often, in seconds, advance() is best called while something moves.
    static constexpr double kTick = 0.01;

    /// A file that is not good plays nothing.
    Playback(Orvel::World& world, ShowFile file);
    Playback(const Playback&) = delete;
    Playback& operator=(const Playback&) = delete;
    ~Playback();

    /// Whether there is something to play. If not, error() says why, all the other functions do
    /// nothing, and times are 0.
    [[nodiscard]] bool isGood() const noexcept;
    [[nodiscard]] const std::string& error() const noexcept;

    /// Empties the world and brings it to the time `from` of the file, in seconds, from 0. Back
    /// ends that are there already learn every change on the way, and then the scene anew; those
    /// that are added after this and before advance() learn only how it stands. Either begin with
    /// every sound at its place (servers, with the kind "client": at its beginning). May be called
    /// again, to start over.
    void start(double from = 0.0);
    /// Applies everything that is due up to and including this time of the file, in seconds. Times
    /// must not go down.
    void advance(double seconds);

    /// The next time after the last one at which advance() is to be called: the very time of a
    /// change, or a tick later while something moves. Infinity when nothing is left.
    [[nodiscard]] double nextStep() const;
    /// When all is over, in seconds: a scene's duration or, without one, when its timeline is done
    /// and every sound that plays then has ended. Valid from start() on; it may grow when a back
    /// end has fetched a sound.
    [[nodiscard]] double end() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace Show
