#pragma once

#include <Orvel/Vec3f.h>

namespace Orvel {

/// A rotation as a quaternion x, y, z, w, meant to be of unit length; the default is no rotation.
/// A plain value; nothing normalises it behind its owner's back.
struct Quaternion {
    float x = 0.0F;
    float y = 0.0F;
    float z = 0.0F;
    float w = 1.0F;

    /// The vector v rotated by this unit quaternion q, that is q v q^-1, in the form
    /// v + w t + u x t with u = (x, y, z) and t = 2 u x v. 90 degrees about +y turn -z into -x.
    [[nodiscard]] constexpr Vec3f rotate(const Vec3f& v) const {
        const Vec3f t{
            2.0F * (y * v.z - z * v.y), 2.0F * (z * v.x - x * v.z), 2.0F * (x * v.y - y * v.x)};
        return {
            v.x + w * t.x + (y * t.z - z * t.y), v.y + w * t.y + (z * t.x - x * t.z),
            v.z + w * t.z + (x * t.y - y * t.x)};
    }

    friend constexpr bool operator==(const Quaternion&, const Quaternion&) = default;
};

} // namespace Orvel
