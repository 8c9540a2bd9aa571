#pragma once

namespace Orvel {

/// A position or direction in scene units, right-handed axes: +x right, +y up, -z ahead at rest.
/// A plain value; any float is stored as given.
struct Vec3f {
    float x = 0.0F;
    float y = 0.0F;
    float z = 0.0F;

    friend constexpr bool operator==(const Vec3f&, const Vec3f&) = default;
};

} // namespace Orvel
