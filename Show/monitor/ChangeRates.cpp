#include <Show/monitor/ChangeRates.h>

#include <algorithm>

namespace Show {

void ChangeRates::advanceTo(std::uint64_t second) {
    // After a long pause all rows are cleared once.
    const std::uint64_t steps = std::min<std::uint64_t>(second - second_, kSeconds);
    for (std::uint64_t i = 0; i < steps; ++i) {
        ring_[(second - i) % kSeconds] = {};
    }
    second_ = second;
}

std::vector<std::uint32_t> ChangeRates::perSecond(ChangeKind change) const {
    std::vector<std::uint32_t> result;
    const std::uint64_t count = std::min<std::uint64_t>(second_, kSeconds - 1);
    result.reserve(count);
    for (std::uint64_t second = second_ - count; second < second_; ++second) {
        result.push_back(ring_[second % kSeconds][static_cast<std::size_t>(change)]);
    }
    return result;
}

} // namespace Show
