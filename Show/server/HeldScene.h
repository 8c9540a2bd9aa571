#pragma once

#include <Show/server/Session.h>

#include <Orvel/CommandEvent.h>
#include <Orvel/World.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>

namespace Show {

/// Lets the scene of a lost driver go on for some time. When a driver begins meanwhile, its replay
/// is merged into the scene: only what is different is changed, so that what plays where it should
/// is not interrupted. Times are nanoseconds of the driver's clock. The world and the session must
/// outlive it. Confined to the server's thread.
class HeldScene {
public:
    using Clock = std::chrono::steady_clock;

    HeldScene(Orvel::World& world, Session& session) : world_(world), session_(session) {}

    /// How long a scene goes on; 0: not at all.
    void setTime(std::chrono::duration<double> time) { time_ = time; }
    [[nodiscard]] bool isWanted() const { return time_ > time_.zero(); }

    /// Its driver is lost.
    void hold(const std::string& driver, Clock::time_point now);
    [[nodiscard]] bool isHeld() const { return until_.has_value(); }
    [[nodiscard]] bool isOver(Clock::time_point now) const { return until_ && now >= *until_; }
    /// The lost driver.
    [[nodiscard]] const std::string& driver() const { return driver_; }
    /// Removes the scene, as its driver has not returned.
    void end();

    /// A driver begins a scene of its own.
    void replace();
    /// A driver begins a scene that is merged. Its events up to CmdEndReplay go to merge().
    void beginMerge();
    [[nodiscard]] bool isMerging() const { return merging_; }
    /// Returns true if an event must not be applied, because nothing is different. `pitch` is that
    /// of the emitter's source.
    bool merge(
        const Orvel::CommandEvent& event, const std::string& client, std::int64_t time,
        double pitch);

    /// A sound begins, or one goes on that was paused.
    void started(const Orvel::Emitter& emitter, std::int64_t time, double pitch);
    /// The pitch of a source changes.
    void pitchChanged(const Orvel::Source& source, std::int64_t time, double before, double after);

private:
    bool mergeEmitter(const Orvel::CommandEvent& event, const std::string& client);
    [[nodiscard]] bool isInPhase(
        const Orvel::CommandEvent& event, const Orvel::Emitter& emitter, std::int64_t time,
        double pitch) const;
    void endMerge();

    Orvel::World& world_;
    Session& session_;
    std::chrono::duration<double> time_{};
    std::optional<Clock::time_point> until_;
    std::string driver_;
    bool merging_ = false;
    std::set<int> emitters_;              // of the replay that is merged
    std::set<int> sources_;               // likewise
    std::set<int> stated_;                // of these, those whose state it has
    std::set<int> playing_;               // emitters that play or pause by the replay
    std::map<int, std::int64_t> origins_; // when emitters that play were at their position 0
};

} // namespace Show
