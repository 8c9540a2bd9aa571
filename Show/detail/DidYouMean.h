#pragma once

#include <span>
#include <string>
#include <string_view>

namespace Show {

/// A suggestion to append to a message about an unknown word: `; did you mean "nearest"?` if one of
/// the known words differs by at most two letters, otherwise empty.
std::string didYouMean(std::string_view word, std::span<const char* const> known);

} // namespace Show
