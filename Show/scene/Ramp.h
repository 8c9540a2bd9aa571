#pragma once

#include <Orvel/Quaternion.h>
#include <Orvel/Vec3f.h>

namespace Show {

/// Interpolates between two values, `part` from 0 to 1: linear for numbers and positions; for unit
/// quaternions along the great circle, the shorter way round (K. Shoemake, "Animating Rotation with
/// Quaternion Curves", 1985).
float between(float from, float to, double part);
Orvel::Vec3f between(const Orvel::Vec3f& from, const Orvel::Vec3f& to, double part);
Orvel::Quaternion between(const Orvel::Quaternion& from, const Orvel::Quaternion& to, double part);

/// A value that changes over a period of time, in seconds.
template <class Value>
struct Ramp {
    double start;
    double end; ///< later than start
    Value from;
    Value to;

    [[nodiscard]] Value at(double seconds) const {
        if (seconds >= end) {
            return to; // exactly
        }
        return seconds <= start ? from : between(from, to, (seconds - start) / (end - start));
    }
};

} // namespace Show
