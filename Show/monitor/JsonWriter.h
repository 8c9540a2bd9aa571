#pragma once

#include <charconv>
#include <cmath>
#include <concepts>
#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>

namespace Show {

/// Appends JSON to a text, which may be one piece of a longer one. It writes the commas; the caller
/// closes each bracket and gives each value of an object a key. Confined to one thread at a time.
class JsonWriter {
public:
    /// Longer texts are truncated, with an ellipsis, because peers may choose their length.
    static constexpr std::size_t kMaxTextBytes = 512;

    /// `continues`: the text continues after a value, so the first value needs a comma.
    explicit JsonWriter(std::string& out, bool continues = false) : out_(out), comma_(continues) {}

    /// Whether the next piece continues after a value.
    [[nodiscard]] bool continues() const { return comma_; }
    /// Number of bytes truncated from texts.
    [[nodiscard]] std::size_t omitted() const { return omitted_; }

    JsonWriter& open(char bracket);  ///< '{' or '['
    JsonWriter& close(char bracket); ///< '}' or ']'
    JsonWriter& key(std::string_view name);

    JsonWriter& textKey(std::string_view name); ///< any text

    JsonWriter& value(bool value);
    JsonWriter& value(std::string_view text); ///< invalid UTF-8 becomes U+FFFD
    JsonWriter& value(const char* text) { return value(std::string_view(text)); }
    JsonWriter& null();

    /// The shortest text that parses to the same number; null for NaN and the infinities, which
    /// JSON does not have.
    template <class Number>
    requires(std::integral<Number> || std::floating_point<Number>) &&
        (!std::same_as<Number, bool> &&
         !std::same_as<Number, char>)JsonWriter& value(Number number) {
        if constexpr (std::floating_point<Number>) {
            if (!std::isfinite(number)) {
                return null();
            }
            // Most values are whole, and integers are written ten times as fast.
            constexpr Number kMax = 1'000'000;
            if (number > -kMax && number < kMax && number == std::trunc(number)) {
                return value(static_cast<int>(number));
            }
        }
        char text[32]; // NOLINT(modernize-avoid-c-arrays): left uninitialised on purpose
        const auto end = std::to_chars(std::begin(text), std::end(text), number).ptr;
        return plain({std::begin(text), end});
    }
    template <class Value>
    JsonWriter& field(std::string_view name, const Value& value) {
        return key(name).value(value);
    }
    /// A field with a list of numbers.
    template <class Number>
    JsonWriter& field(std::string_view name, std::initializer_list<Number> numbers) {
        key(name).open('[');
        for (const Number number : numbers) {
            value(number);
        }
        return close(']');
    }

private:
    JsonWriter& plain(std::string_view text);

    std::string& out_;
    bool comma_; // before the next key or value
    std::size_t omitted_ = 0;
};

} // namespace Show
