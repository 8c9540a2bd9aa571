#pragma once

#include <Orvel/Hull.h>

#include <algorithm>

namespace Orvel::detail {

/// The gain of a sound at a distance, 1 at full level: OpenAL's "inverse distance clamped".
constexpr float attenuation(const Reach& reach, float distance) noexcept {
    return reach.full / std::clamp(distance, reach.full, reach.softest);
}

} // namespace Orvel::detail
