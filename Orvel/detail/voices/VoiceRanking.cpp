#include <Orvel/detail/voices/VoiceRanking.h>

#include <algorithm>
#include <bit>
#include <functional>

namespace Orvel::detail {

void VoiceRanking::add(std::uint32_t emitter, float loudness, bool mixed) {
    const float weighed = loudness > 0.0F ? (mixed ? loudness * kMargin : loudness) : 0.0F;
    const auto bits = std::uint64_t{std::bit_cast<std::uint32_t>(weighed)};
    keys_.push_back(bits << 32U | static_cast<std::uint32_t>(~emitter));
}

std::size_t VoiceRanking::choose(std::size_t count) {
    if (keys_.size() <= count) {
        return keys_.size();
    }
    std::nth_element(
        keys_.begin(), keys_.begin() + static_cast<std::ptrdiff_t>(count), keys_.end(),
        std::greater<>());
    return count;
}

} // namespace Orvel::detail
