#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace Show {

/// The text as valid UTF-8: each byte that is part of no well-formed character becomes U+FFFD.
/// Names come from scene files and from the network, and a reader of JSON or of metrics refuses a
/// whole page for one bad byte.
std::string validText(std::string_view text);

/// How many bytes the UTF-8 character takes that begins at `at`, which is within the text; 0 if
/// none does.
std::size_t characterLength(std::string_view text, std::size_t at);

} // namespace Show
