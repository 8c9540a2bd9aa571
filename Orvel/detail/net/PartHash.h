#pragma once

#include <Orvel/WorldPart.h>

#include <cstdint>

namespace Orvel {
class Emitter;
class Source;
class World;
} // namespace Orvel

namespace Orvel::detail {

/// How the components of a transform are rounded before they are hashed. A server's may differ from
/// its client's by the tolerance of the setters. So the client rounds each component to a grid on
/// which it is not near an edge, either the one or the one between, and sends which.
class Rounding {
public:
    /// Chooses the grids.
    Rounding() = default;
    /// Takes the choice of a client.
    explicit Rounding(std::uint8_t chosen) : chosen_(chosen), chooses_(false) {}

    /// Rounds the next component, of 7 at most.
    [[nodiscard]] std::uint64_t cellOf(float component);
    /// One bit for each component.
    [[nodiscard]] std::uint8_t chosen() const { return chosen_; }

private:
    std::uint8_t chosen_ = 0;
    bool chooses_ = true;
    unsigned count_ = 0;
};

// Hashes of all values that are sent, see docs/protocol.md. `state`, `pitch` and `gain` are those
// that were sent or received, which those of the part need not be.
[[nodiscard]] std::uint64_t hashOf(bool enabled);
[[nodiscard]] std::uint64_t hashOfListener(World& world, Rounding& rounding);
[[nodiscard]] std::uint64_t hashOf(const Source& source, WorldPart::State state, float pitch);
[[nodiscard]] std::uint64_t
hashOf(const Emitter& emitter, WorldPart::State state, float gain, Rounding& rounding);

} // namespace Orvel::detail
