#pragma once

#include <Orvel/BackendState.h>
#include <Orvel/World.h>

#include <unordered_map>

namespace Show {

/// How the emitters of a world are heard, by id. An emitter of several back ends counts as the one
/// where it is best off. Those that no back end accounts for are left out.
using Hearings = std::unordered_map<int, Orvel::BackendState::HeardEmitter>;

[[nodiscard]] Hearings hearingsOf(const Orvel::World& world);

/// A linear level in dB, to a tenth; minus infinity for silence.
[[nodiscard]] double decibelsOf(float level);

} // namespace Show
