#pragma once

#include <span>
#include <string>
#include <string_view>

namespace Show {

/// What a message about an unknown word ends with: `; did you mean "nearest"?` if one of the known
/// words is at most two letters away, otherwise nothing.
std::string didYouMean(std::string_view word, std::span<const char* const> known);

} // namespace Show
