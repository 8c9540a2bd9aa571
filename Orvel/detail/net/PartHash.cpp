#include <Orvel/detail/net/PartHash.h>

#include <Orvel/Emitter.h>
#include <Orvel/Source.h>
#include <Orvel/World.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <string>

namespace Orvel::detail {

namespace {

class PartHash {
public:
    void add(std::uint64_t value) {
        hash_ = (hash_ ^ value) * 0x9E3779B97F4A7C15U;
        hash_ ^= hash_ >> 29U;
    }
    void add(float value) { add(std::uint64_t{std::bit_cast<std::uint32_t>(value)}); }
    void add(const std::string& text) {
        add(std::uint64_t{text.size()});
        for (std::size_t at = 0; at < text.size(); at += sizeof(std::uint64_t)) {
            std::uint64_t piece = 0;
            std::memcpy(&piece, text.data() + at, std::min(text.size() - at, sizeof piece));
            add(piece);
        }
    }
    /// A part that has stopped and one that has never played sound alike, and a replay does not
    /// tell them apart.
    void add(WorldPart::State state) {
        add(std::uint64_t{state == WorldPart::PLAY ? 1U : state == WorldPart::PAUSE ? 2U : 0U});
    }
    void add(const Vec3f& position, const Quaternion& rotation, Rounding& rounding) {
        for (const float component :
             {position.x, position.y, position.z, rotation.x, rotation.y, rotation.z, rotation.w}) {
            add(rounding.cellOf(component));
        }
    }
    [[nodiscard]] std::uint64_t value() const { return hash_; }

private:
    std::uint64_t hash_ = 0;
};

} // namespace

std::uint64_t Rounding::cellOf(float component) {
    constexpr double kCells = 1U << 17U;                      // to a unit
    constexpr float kMaxRounded = 0x1p30F;                    // larger ones are exact
    constexpr std::uint64_t kExact = std::uint64_t{1} << 62U; // besides the bits
    const auto bit = static_cast<std::uint8_t>(1U << count_++);
    if (!(std::abs(component) < kMaxRounded)) { // or no number
        return kExact | std::bit_cast<std::uint32_t>(component);
    }
    const double place = static_cast<double>(component) * kCells;
    const double inCell = place - std::floor(place);
    if (chooses_ && (inCell < 0.25 || inCell >= 0.75)) {
        chosen_ |= bit;
    }
    const double shift = (chosen_ & bit) != 0 ? 0.5 : 0.0;
    return static_cast<std::uint64_t>(static_cast<std::int64_t>(std::floor(place + shift)));
}

std::uint64_t hashOf(bool enabled) {
    PartHash hash;
    hash.add(std::uint64_t{enabled ? 1U : 0U});
    return hash.value();
}

std::uint64_t hashOfListener(World& world, Rounding& rounding) {
    PartHash hash;
    hash.add(world.listenerPosition(), world.listenerRotation(), rounding);
    return hash.value();
}

std::uint64_t hashOf(const Source& source, WorldPart::State state, float pitch) {
    PartHash hash;
    hash.add(state);
    hash.add(pitch);
    hash.add(std::uint64_t{source.loop() ? 1U : 0U});
    return hash.value();
}

std::uint64_t
hashOf(const Emitter& emitter, WorldPart::State state, float gain, Rounding& rounding) {
    const Source* source = emitter.source();
    PartHash hash;
    hash.add(emitter.position(), emitter.rotation(), rounding);
    for (const HullExtent& extent : kHullExtents) {
        hash.add(emitter.hull().*extent.value);
    }
    hash.add(gain);
    hash.add(emitter.paramValue());
    hash.add(std::uint64_t{emitter.paramFlag() ? 1U : 0U});
    hash.add(std::uint64_t{static_cast<std::uint16_t>(source == nullptr ? 0 : source->id())});
    hash.add(state);
    for (const std::string& label : emitter.labels()) {
        hash.add(label);
    }
    return hash.value();
}

} // namespace Orvel::detail
