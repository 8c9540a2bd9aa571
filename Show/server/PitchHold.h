#pragma once

#include <utility>

namespace Show {

/// Keeps long sounds in phase on an output whose sample clock runs faster or slower than the clock
/// of the scene: by turns of two pitches, 244 ppm apart, which OpenAL's mixer can tell from each
/// other. Sounds that start at any time then stay within kTolerance of where they would be on an
/// output without drift, or a little more. If they are far off, as after a gap of the output, they
/// are to be moved. Confined.
class PitchHold {
public:
    /// The step of the mixer's pitch.
    static constexpr double kStep = 1.0 / 4096.0;
    /// The error of the phase at which the pitch is changed, in seconds.
    static constexpr double kTolerance = 20e-6;
    /// An error beyond kFar seconds for kFarTime seconds would take minutes to be made up.
    static constexpr double kFar = 0.03;
    static constexpr double kFarTime = 1.0;

    /// `outputLead`: by how much the frames of the output, at their nominal rate, are ahead of the
    /// clock of the scene's driver; `frames`: their number in seconds. Both only count as
    /// differences. `deviation`: how well the driver's clock is known, in seconds; sounds do not
    /// follow it more exactly. Returns whether factor() has changed.
    bool update(double outputLead, double frames, double deviation);
    /// Another output or another scene: the next update() is taken to be without an error.
    void restart();
    /// The factor on the pitch of all sounds from now on.
    [[nodiscard]] double factor() const { return 1.0 + turn_ * kStep; }
    /// By how many seconds sounds are to be moved forward now; usually 0.
    double takeMove() { return std::exchange(move_, 0.0); }

private:
    bool begun_ = false;
    double lead_ = 0.0;
    double frames_ = 0.0;
    double error_ = 0.0; // by how much sounds are ahead, in seconds
    double farSince_ = 0.0;
    bool isFar_ = false;
    double move_ = 0.0;
    int turn_ = 0; // -1, 0 or 1
};

} // namespace Show
