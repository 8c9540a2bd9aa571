#include <Show/scene/Ramp.h>

#include <cmath>

namespace Show {

float between(float from, float to, double part) {
    const double start = from;
    const double end = to;
    return static_cast<float>(start + (end - start) * part);
}

Orvel::Vec3f between(const Orvel::Vec3f& from, const Orvel::Vec3f& to, double part) {
    return {between(from.x, to.x, part), between(from.y, to.y, part), between(from.z, to.z, part)};
}

Orvel::Quaternion between(const Orvel::Quaternion& from, const Orvel::Quaternion& to, double part) {
    const auto product = [](float a, float b) {
        return static_cast<double>(a) * static_cast<double>(b);
    };
    const double cosine = product(from.x, to.x) + product(from.y, to.y) + product(from.z, to.z) +
                          product(from.w, to.w);
    // A quaternion and its negative are the same rotation; the nearer one gives the shorter way.
    const double sign = cosine < 0.0 ? -1.0 : 1.0;
    double first = 1.0 - part;
    double second = part * sign;
    constexpr double kAlmostEqual = 0.9999; // where the sines vanish, use the chord
    if (std::abs(cosine) < kAlmostEqual) {
        const double angle = std::acos(std::abs(cosine));
        first = std::sin(first * angle) / std::sin(angle);
        second = sign * std::sin(part * angle) / std::sin(angle);
    }
    const auto mix = [&](float a, float b) {
        return first * static_cast<double>(a) + second * static_cast<double>(b);
    };
    const double x = mix(from.x, to.x);
    const double y = mix(from.y, to.y);
    const double z = mix(from.z, to.z);
    const double w = mix(from.w, to.w);
    const double length = std::sqrt(x * x + y * y + z * z + w * w);
    return {
        static_cast<float>(x / length), static_cast<float>(y / length),
        static_cast<float>(z / length), static_cast<float>(w / length)};
}

} // namespace Show
