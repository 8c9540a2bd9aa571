#pragma once

#include <array>

namespace Orvel {

/// How far an emitter is heard, behind and in front of it, in scene units: at its full level within
/// the inner extents, softer beyond them, and no softer beyond the outer ones. With inner extents
/// of 0 it is nearly silent, so set them.
struct Hull {
    float maxBack = 10.0F;
    float maxFront = 10.0F;
    float minBack = 0.0F;
    float minFront = 0.0F;

    friend bool operator==(const Hull&, const Hull&) = default;
};

/// One of the extents, under its name in files.
struct HullExtent {
    const char* name;
    float Hull::*value;
};

/// All of them, in the order in which they are given everywhere.
inline constexpr std::array kHullExtents = {
    HullExtent{"maxBack", &Hull::maxBack}, HullExtent{"maxFront", &Hull::maxFront},
    HullExtent{"minBack", &Hull::minBack}, HullExtent{"minFront", &Hull::minFront}};

/// A hull as OpenAL renders it, which is the same in all directions.
struct Reach {
    float full;    ///< the distance up to which it has its full level
    float softest; ///< from which on it gets no softer; above `full`
};

/// Takes the means of front and back. Each is above 0.
constexpr Reach reachOf(const Hull& hull) noexcept {
    constexpr float kSmallest = 0.001F;
    const float inner = (hull.minBack + hull.minFront) * 0.5F;
    const float outer = (hull.maxBack + hull.maxFront) * 0.5F;
    const float full = inner > 0.0F ? inner : kSmallest;
    const float softest = outer > 0.0F ? outer : kSmallest;
    return {full < softest ? full : 0.999F * softest, softest};
}

} // namespace Orvel
