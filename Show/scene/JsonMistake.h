#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace Show {

/// Where a text is no JSON, and what to do about it, in words for people who do not know JSON.
struct JsonMistake {
    int line = 0;     ///< from 1
    int column = 0;   ///< from 1, in characters
    std::string text; ///< "expected ..., found ..."; one line
};

/// The first mistake in a text that should be JSON in UTF-8, in which comments of the forms //...
/// and /*...*/ are allowed; nothing if there is none. Takes time in proportion to the text.
std::optional<JsonMistake> findMistake(std::string_view text);

/// A mistake at an offset, not beyond the end of the text.
JsonMistake mistakeAt(std::string_view text, std::size_t offset, std::string words);

} // namespace Show
