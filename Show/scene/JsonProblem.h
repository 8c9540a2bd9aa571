#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace Show {

/// A syntax error in JSON, with a remedy, in words for people who do not know JSON.
struct JsonProblem {
    int line = 0;     ///< from 1
    int column = 0;   ///< from 1, in characters
    std::string text; ///< "expected ..., found ..."; one line
};

/// The first syntax error in a JSON text in UTF-8, which may have comments of the forms //... and
/// /*...*/; empty if there is none. Takes linear time.
std::optional<JsonProblem> findProblem(std::string_view text);

/// An error at an offset, not beyond the end of the text.
JsonProblem problemAt(std::string_view text, std::size_t offset, std::string words);

} // namespace Show
