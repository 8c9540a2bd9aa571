#include <Config/Base.h>

#include <algorithm>
#include <initializer_list>
#include <string_view>

namespace Config {

namespace {

/// Whether a text equals the given lower-case word in any case; ASCII, whatever the locale.
bool isWord(std::string_view text, std::string_view word) {
    return std::equal(
        text.begin(), text.end(), word.begin(), word.end(), [](char given, char lower) {
            return (given >= 'A' && given <= 'Z' ? given - 'A' + 'a' : given) == lower;
        });
}

} // namespace

bool Base::string2Value(const char* text, bool defaultValue) noexcept {
    if (text == nullptr) {
        return defaultValue;
    }
    for (const char* yes : {"true", "yes", "on", "1"}) {
        if (isWord(text, yes)) {
            return true;
        }
    }
    for (const char* no : {"false", "no", "off", "0"}) {
        if (isWord(text, no)) {
            return false;
        }
    }
    return defaultValue;
}

} // namespace Config
