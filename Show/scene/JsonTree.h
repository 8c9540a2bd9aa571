#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Show {

struct Problem;

/// A JSON value that knows its line.
struct JsonValue {
    enum class Kind : unsigned char {
        Null,
        Bool,
        Number,
        Text,
        Array,
        Object,
        Unreadable ///< a number too large; reported already
    };

    Kind kind = Kind::Null;
    bool yes = false;
    int line = 0;                 ///< of the key, for a member of an object
    double number = 0.0;          ///< finite
    std::string key;              ///< of a member of an object
    std::string text;             ///< UTF-8
    std::vector<JsonValue> items; ///< elements, or members in their order

    /// The member of an object, or null.
    [[nodiscard]] const JsonValue* find(std::string_view name) const;
    /// For messages: "\"abc\"", "-3", "true", "an array of 2".
    [[nodiscard]] std::string describe() const;
};
using JsonKind = JsonValue::Kind;

/// A place in the tree, for messages; it lives on the stack of whoever reads there.
struct JsonPlace {
    const JsonPlace* up = nullptr;
    std::string_view key{};
    std::size_t index = 0; ///< counts when there is no key

    /// Such as "emitters[0].hull.maxBack".
    [[nodiscard]] std::string str() const;
};

/// Reads a JSON text with comments (//... and /*...*/), whose numbers are finite, whose keys are
/// unique within their object, and which keeps to kMaxSceneDepth and kMaxSceneValues. What is not
/// so becomes a problem, with `file` as its file's name. Empty if nothing can be made of the text.
std::optional<JsonValue>
parseJson(std::string_view text, const std::string& file, std::vector<Problem>& problems);

/// `text` with what does not belong on a line replaced, and cut after `longest` bytes or a few
/// less.
std::string printable(std::string_view text, std::size_t longest = 60);

/// A number as a person would write it.
std::string printable(double number);

} // namespace Show
