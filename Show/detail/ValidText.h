#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace Show {

/// The text as valid UTF-8: each invalid byte becomes U+FFFD. Names come from scene files and from
/// the network, and readers of JSON or metrics reject a whole page for one invalid byte.
std::string validText(std::string_view text);

/// Number of bytes of the UTF-8 character at `at`, which is within the text; 0 if it is invalid.
std::size_t characterLength(std::string_view text, std::size_t at);

} // namespace Show
