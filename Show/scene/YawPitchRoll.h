#pragma once

#include <Orvel/Quaternion.h>

#include <array>

namespace Show {

/// The unit quaternion for angles in degrees, of any size: first the roll, clockwise as seen by the
/// listener, then the pitch, upwards, then the yaw, to the left.
Orvel::Quaternion fromYawPitchRoll(double yaw, double pitch, double roll);

/// The angles of a unit quaternion, in degrees: a yaw and a roll within 180, a pitch within 90. Of
/// one that looks straight up or down, the roll is 0.
std::array<float, 3> toYawPitchRoll(const Orvel::Quaternion& rotation);

} // namespace Show
