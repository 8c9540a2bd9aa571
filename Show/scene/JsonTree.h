#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace Show {

struct Problem;

/// A JSON value with its line. Its texts belong to its tree.
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
    std::string_view key;         ///< of a member of an object; equal ones are the same characters
    std::string_view text;        ///< UTF-8
    std::vector<JsonValue> items; ///< elements, or members in order

    /// The member of an object, or null.
    [[nodiscard]] const JsonValue* find(std::string_view name) const;
    /// For messages: "\"abc\"", "-3", "true", "an array of 2".
    [[nodiscard]] std::string describe() const;
};
using JsonKind = JsonValue::Kind;

/// All values of a text.
struct JsonTree {
    JsonValue root;
    std::set<std::string, std::less<>> keys;
    std::deque<std::string> texts;
};

/// A path in the tree, for messages; lives on the reader's stack.
struct JsonPlace {
    const JsonPlace* up = nullptr;
    std::string_view key{};
    std::size_t index = 0; ///< used if there is no key

    /// Such as "emitters[0].hull.maxBack".
    [[nodiscard]] std::string str() const;
};

/// Reads a JSON text with comments (//... and /*...*/). Numbers must be finite and keys unique
/// within their object; depth and size are limited by kMaxSceneDepth and kMaxSceneValues.
/// Violations become problems, with `file` as their file name. Returns nothing if the text cannot
/// be read at all.
std::optional<JsonTree>
parseJson(std::string_view text, const std::string& file, std::vector<Problem>& problems);

/// `text` with unprintable characters replaced, truncated to at most `longest` bytes.
std::string printable(std::string_view text, std::size_t longest = 60);

/// A number in its usual notation.
std::string printable(double number);

} // namespace Show
