#pragma once

#include <Show/osc/OscEdits.h>

#include <Orvel/Emitter.h>

#include <chrono>
#include <map>

namespace Show {

/// Changes gains over a time. A fade ends early when anything else sets the gain. `edits` must
/// outlive it. Confined to the world's thread.
class GainFades {
public:
    using Clock = std::chrono::steady_clock;

    /// The interval of the steps.
    static constexpr std::chrono::milliseconds kStep{10};

    explicit GainFades(const OscEdits& edits) : edits_(edits) {}

    /// Changes the gain linearly from now on, in place of an earlier fade.
    void add(const Orvel::Emitter& emitter, float gain, Clock::duration over);
    void remove(int id) { fades_.erase(id); }
    /// Where the gain of an emitter will be after its fade.
    [[nodiscard]] float goal(const Orvel::Emitter& emitter) const;

    /// When to call step() next; Clock::time_point::max() without fades.
    [[nodiscard]] Clock::time_point next() const;
    void step(Clock::time_point now);

private:
    struct Fade {
        Clock::time_point begin;
        Clock::time_point end;
        float from;
        float to;
        float now; ///< as set last
    };

    const OscEdits& edits_;
    std::map<int, Fade> fades_; // by the emitter's id
    Clock::time_point next_{};
};

} // namespace Show
