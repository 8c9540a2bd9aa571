#include <Show/scene/YawPitchRoll.h>

#include <cmath>
#include <numbers>

namespace Show {

Orvel::Quaternion fromYawPitchRoll(double yaw, double pitch, double roll) {
    const auto half = [](double degrees) {
        return std::remainder(degrees, 720.0) * std::numbers::pi / 360.0;
    };
    const double sy = std::sin(half(yaw));
    const double cy = std::cos(half(yaw));
    const double sp = std::sin(half(pitch));
    const double cp = std::cos(half(pitch));
    const double sr = std::sin(half(roll));
    const double cr = std::cos(half(roll));
    // About +y, then +x, then -z: (0, sy, 0, cy) (sp, 0, 0, cp) (0, 0, -sr, cr).
    return {
        static_cast<float>(cy * sp * cr - sy * cp * sr),
        static_cast<float>(cy * sp * sr + sy * cp * cr),
        static_cast<float>(-cy * cp * sr - sy * sp * cr),
        static_cast<float>(cy * cp * cr - sy * sp * sr)};
}

} // namespace Show
