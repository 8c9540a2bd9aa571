#pragma once

#include <Orvel/Vec3f.h>

namespace Orvel {

/// A rotation as a quaternion x, y, z, w; the default is no rotation. Its length does not matter
/// unless it is 0. A plain value; the length is not normalised.
struct Quaternion {
    float x = 0.0F;
    float y = 0.0F;
    float z = 0.0F;
    float w = 1.0F;

    /// Rotates v by this quaternion q, that is q v q^-1, computed as v + w t + u x t with u = (x,
    /// y, z) and t = 2 u x v / |q|^2. 90 degrees about +y turn -z into -x. The quaternion 0 leaves
    /// v unchanged.
    [[nodiscard]] constexpr Vec3f rotate(const Vec3f& v) const {
        // In double precision, where the square of no finite float overflows or underflows.
        const double q[] = {double{x}, double{y}, double{z}, double{w}};
        const double from[] = {double{v.x}, double{v.y}, double{v.z}};
        const double square = q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3];
        const double scale = square == 0.0 ? 0.0 : 2.0 / square;
        const double t[] = {
            scale * (q[1] * from[2] - q[2] * from[1]), scale * (q[2] * from[0] - q[0] * from[2]),
            scale * (q[0] * from[1] - q[1] * from[0])};
        return {
            static_cast<float>(from[0] + q[3] * t[0] + (q[1] * t[2] - q[2] * t[1])),
            static_cast<float>(from[1] + q[3] * t[1] + (q[2] * t[0] - q[0] * t[2])),
            static_cast<float>(from[2] + q[3] * t[2] + (q[0] * t[1] - q[1] * t[0]))};
    }

    friend constexpr bool operator==(const Quaternion&, const Quaternion&) = default;
};

} // namespace Orvel
