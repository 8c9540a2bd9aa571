#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Orvel::detail {

/// Chooses the loudest of many emitters. An emitter that is mixed already stays so unless another
/// one is louder by kMargin, so that two of similar level do not alternate. Confined.
class VoiceRanking {
public:
    /// Ratio of levels, about 2 dB.
    static constexpr float kMargin = 1.25F;

    void clear() { keys_.clear(); }
    /// Enters an emitter; a loudness that is not above 0 counts as silence.
    void add(std::uint32_t emitter, float loudness, bool mixed);
    /// Reorders the entries: the first ones, at most `count`, are the loudest, in no order among
    /// themselves. Equally loud ones are chosen by their numbers. Returns the number of those.
    std::size_t choose(std::size_t count);

    [[nodiscard]] std::size_t size() const noexcept { return keys_.size(); }
    [[nodiscard]] std::uint32_t emitter(std::size_t place) const {
        return ~static_cast<std::uint32_t>(keys_[place]);
    }

private:
    // The bits of the loudness above those of the number, complemented: bits of positive floats are
    // ordered like their values, and one integer is compared faster than a pair.
    std::vector<std::uint64_t> keys_;
};

} // namespace Orvel::detail
