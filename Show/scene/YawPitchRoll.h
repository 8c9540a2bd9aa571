#pragma once

#include <Orvel/Quaternion.h>

namespace Show {

/// The unit quaternion of a rotation by angles in degrees, of any size: first the roll, clockwise
/// as seen by somebody who looks ahead, then the pitch, upwards, then the yaw, to the left.
Orvel::Quaternion fromYawPitchRoll(double yaw, double pitch, double roll);

} // namespace Show
