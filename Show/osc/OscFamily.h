#pragma once

#include <Show/osc/OscAnswer.h>

#include <array>
#include <cstddef>
#include <functional>
#include <limits>
#include <span>
#include <string>
#include <vector>

namespace Show {

/// The numbers of a message.
using OscNumbers = std::span<const float>;
/// Null, or the expected form of a message.
using OscExpected = const char*;

/// The limits of a number; infinite: none.
struct OscRange {
    float low;
    float high;
};
/// Those of the numbers of a path, of static duration; a single one applies to all of them.
using OscRanges = std::span<const OscRange>;

inline constexpr std::array kOscFromZero{OscRange{0.0F, std::numeric_limits<float>::infinity()}};

/// A path of one part, the last word of it.
template <class Part>
struct OscEntry {
    std::string name;
    const char* meaning = "";        ///< for controllers
    OscRanges ranges{};              ///< empty: no limits
    std::vector<std::size_t> counts; ///< of numbers; none: takes a text
    /// Applies numbers, as many as one of the counts.
    std::function<OscExpected(Part& part, OscNumbers numbers)> take{};
    /// Answers a query; empty: there is none. Without counts and `write` it cannot be set.
    std::function<OscValues(Part& part)> read{};
    bool sent = false; ///< to subscribers
    /// Applies a text.
    std::function<OscExpected(Part& part, const std::string& text)> write{};
    bool echoed = false; ///< sent also to the subscriber that caused the change
};

/// Paths with a common prefix.
template <class Part>
struct OscFamily {
    std::string prefix; ///< before the id if the parts have one
    std::vector<OscEntry<Part>> entries;
};

/// Buttons send 1 when pressed and 0 when released.
inline bool isRelease(OscNumbers numbers) {
    return numbers.size() == 1 && numbers[0] == 0.0F;
}

} // namespace Show
