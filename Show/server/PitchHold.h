#pragma once

namespace Show {

/// Keeps long sounds in phase on an output whose sample clock runs faster or slower than the clock
/// of the scene: by turns of two pitches, 244 ppm apart, which OpenAL's mixer can tell from each
/// other. Sounds that start at any time then stay within kTolerance of where they would be on an
/// output without drift, or a little more. Confined.
class PitchHold {
public:
    /// The step of the mixer's pitch.
    static constexpr double kStep = 1.0 / 4096.0;
    /// The error of the phase at which the pitch is changed, in seconds.
    static constexpr double kTolerance = 50e-6;
    /// A jump of the output's clock beyond this, in seconds, is another device, and no drift.
    static constexpr double kMaxJump = 0.005;

    /// `outputLead`: by how much the frames of the output, at their nominal rate, are ahead of the
    /// clock of the scene's driver; `frames`: their number in seconds. Both only count as
    /// differences. Returns whether factor() has changed.
    bool update(double outputLead, double frames);
    /// The factor on the pitch of all sounds from now on.
    [[nodiscard]] double factor() const { return 1.0 + turn_ * kStep; }

private:
    bool begun_ = false;
    double lead_ = 0.0;
    double frames_ = 0.0;
    double error_ = 0.0; // by how much sounds are ahead, in seconds
    int turn_ = 0;       // -1, 0 or 1
};

} // namespace Show
