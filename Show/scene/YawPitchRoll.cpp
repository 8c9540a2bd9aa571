#include <Show/scene/YawPitchRoll.h>

#include <algorithm>
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

std::array<float, 3> toYawPitchRoll(const Orvel::Quaternion& rotation) {
    constexpr float kPole = 0.99999F;
    const Orvel::Vec3f ahead = rotation.rotate({0, 0, -1});
    const Orvel::Vec3f right = rotation.rotate({1, 0, 0});
    const float up = std::clamp(ahead.y, -1.0F, 1.0F);
    const bool pole = std::abs(up) > kPole;
    const float yaw = pole ? std::atan2(-right.z, right.x) : std::atan2(-ahead.x, -ahead.z);
    const float roll = pole ? 0.0F : std::atan2(-right.y, rotation.rotate({0, 1, 0}).y);
    constexpr float kDegrees = 180.0F / std::numbers::pi_v<float>;
    return {yaw * kDegrees, std::asin(up) * kDegrees, roll * kDegrees};
}

} // namespace Show
