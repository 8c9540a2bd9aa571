#pragma once

#include <array>

namespace Orvel {

/// The range of an emitter, behind and in front of it, in scene units: full level within the inner
/// extents, falling beyond them, and constant beyond the outer ones. With inner extents of 0 it is
/// nearly silent, so set them.
struct Hull {
    float maxBack = 10.0F;
    float maxFront = 10.0F;
    float minBack = 0.0F;
    float minFront = 0.0F;

    friend bool operator==(const Hull&, const Hull&) = default;
};

/// One extent, with its name in files.
struct HullExtent {
    const char* name;
    float Hull::*value;
};

/// All extents, in the order used everywhere.
inline constexpr std::array kHullExtents = {
    HullExtent{"maxBack", &Hull::maxBack}, HullExtent{"maxFront", &Hull::maxFront},
    HullExtent{"minBack", &Hull::minBack}, HullExtent{"minFront", &Hull::minFront}};

/// A hull as rendered by OpenAL, which is the same in all directions.
struct Reach {
    float full;    ///< full level up to this distance
    float softest; ///< constant level from this distance on; above `full`
};

/// Uses the means of front and back. Both results are above 0.
constexpr Reach reachOf(const Hull& hull) noexcept {
    constexpr float kSmallest = 0.001F;
    const float inner = (hull.minBack + hull.minFront) * 0.5F;
    const float outer = (hull.maxBack + hull.maxFront) * 0.5F;
    const float full = inner > 0.0F ? inner : kSmallest;
    const float softest = outer > 0.0F ? outer : kSmallest;
    return {full < softest ? full : 0.999F * softest, softest};
}

} // namespace Orvel
