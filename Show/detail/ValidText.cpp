#include <Show/detail/ValidText.h>

namespace Show {

namespace {

unsigned byteAt(std::string_view text, std::size_t at) {
    return at < text.size() ? static_cast<unsigned char>(text[at]) : 0;
}

} // namespace

// The ranges are those of RFC 3629: no overlong forms, no surrogates, nothing above U+10FFFF.
std::size_t characterLength(std::string_view text, std::size_t at) {
    const unsigned first = byteAt(text, at);
    if (first < 0x80) {
        return 1;
    }
    const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4) {
        return 0;
    }
    const unsigned lowest = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
    const unsigned highest = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
    const unsigned second = byteAt(text, at + 1);
    if (second < lowest || second > highest) {
        return 0;
    }
    for (std::size_t i = 2; i < length; ++i) {
        if ((byteAt(text, at + i) & 0xC0U) != 0x80) {
            return 0;
        }
    }
    return length;
}

std::string validText(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        if (const std::size_t length = characterLength(text, at); length != 0) {
            out.append(text, at, length);
            at += length;
        } else {
            out += "\xEF\xBF\xBD";
            ++at;
        }
    }
    return out;
}

} // namespace Show
