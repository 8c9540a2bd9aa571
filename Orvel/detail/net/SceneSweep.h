#pragma once

#include <Orvel/CheckEvent.h>

#include <chrono>
#include <cstddef>
#include <optional>

namespace Orvel {
class World;
}

namespace Orvel::detail {

/// A client's sweeps over its scene, a few parts at each update, so that no update takes long: as
/// many as a sweep in kTime needs, and CheckEvent::kMaxParts at most. Confined.
class SceneSweep {
public:
    using Clock = std::chrono::steady_clock;

    /// The time of a sweep, unless there are too many parts.
    static constexpr std::chrono::milliseconds kTime{400};
    /// Between two events, unless there are many parts.
    static constexpr std::chrono::milliseconds kInterval{20};

    /// Fills an event with the next parts. Returns false if none are due. `enabled`: the scene's
    /// switch; nothing if it is not sent to servers.
    bool next(CheckEvent& event, World& world, Clock::time_point now, std::optional<bool> enabled);

private:
    enum class Stage { Scene, Sources, Emitters };

    void begin();
    /// Adds parts of a map from next_ on. Returns whether it has no more.
    template <class Parts, class Add>
    bool addParts(const Parts& parts, std::size_t most, CheckEvent& event, const Add& add);

    Clock::time_point last_;
    unsigned number_ = 0; // of the next event
    Stage stage_ = Stage::Scene;
    int next_ = 1; // the least id of the stage that is due
};

} // namespace Orvel::detail
