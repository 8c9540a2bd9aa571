#pragma once

#include <Orvel/Quaternion.h>

namespace Show {

/// The unit quaternion for angles in degrees, of any size: first the roll, clockwise as seen by the
/// listener, then the pitch, upwards, then the yaw, to the left.
Orvel::Quaternion fromYawPitchRoll(double yaw, double pitch, double roll);

} // namespace Show
