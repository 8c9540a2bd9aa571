#include <Show/detail/DidYouMean.h>

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <utility>
#include <vector>

namespace Show {

namespace {

/// The number of letters to add, remove or replace between two words.
std::size_t distance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < a.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i + 1);
        for (std::size_t j = 0; j < b.size(); ++j) {
            const std::size_t replaced = diagonal + (a[i] == b[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, diagonal + 1, row[j] + 1});
        }
    }
    return row.back();
}

} // namespace

std::string didYouMean(std::string_view word, std::span<const char* const> known) {
    constexpr std::size_t kLongest = 40; // known words are shorter
    const char* nearest = nullptr;
    std::size_t least = 3; // a greater distance is not a typing error
    if (word.size() < kLongest) {
        for (const char* candidate : known) {
            const std::size_t steps = distance(word, candidate);
            if (steps < least && steps < std::max<std::size_t>(2, word.size())) {
                least = steps;
                nearest = candidate;
            }
        }
    }
    return nearest == nullptr ? "" : std::string("; did you mean \"") + nearest + "\"?";
}

} // namespace Show
