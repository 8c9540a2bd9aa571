#pragma once

#include <Orvel/Quaternion.h>
#include <Orvel/Vec3f.h>

namespace Orvel::detail {

/// Transforms are equal if every component is, within this tolerance. Both differences are tested
/// instead of the absolute one, so that NaN counts as a change.
constexpr float kTransformTolerance = 1e-6F;

constexpr bool same(float a, float b) {
    return a - b <= kTransformTolerance && b - a <= kTransformTolerance;
}

constexpr bool same(const Vec3f& a, const Vec3f& b) {
    return same(a.x, b.x) && same(a.y, b.y) && same(a.z, b.z);
}

constexpr bool same(const Quaternion& a, const Quaternion& b) {
    return same(a.x, b.x) && same(a.y, b.y) && same(a.z, b.z) && same(a.w, b.w);
}

} // namespace Orvel::detail
