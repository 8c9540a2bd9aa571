#include <Show/detail/VisibleText.h>

#include <Show/detail/ValidText.h>

#include <cstdio>

namespace Show {

namespace {

/// U+0080 to U+009F are control characters too, to some terminals.
bool isControl(std::string_view character) {
    const auto first = static_cast<unsigned char>(character.front());
    return first < 0x20 || first == 0x7F ||
           (first == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0);
}

/// U+202A to U+202E and U+2066 to U+2069.
bool turnsWriting(std::string_view character) {
    if (character.size() != 3 || character.front() != '\xE2') { // U+2000 to U+2FFF
        return false;
    }
    const unsigned low = (static_cast<unsigned char>(character[1]) & 0x3FU) << 6U |
                         (static_cast<unsigned char>(character[2]) & 0x3FU);
    return (low >= 0x2A && low <= 0x2E) || (low >= 0x66 && low <= 0x69);
}

void append(std::string& out, std::string_view text, std::string_view kept) {
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = characterLength(text, at);
        const std::string_view character = text.substr(at, length == 0 ? 1 : length);
        at += character.size();
        if (length != 0 && ((!isControl(character) && !turnsWriting(character)) ||
                            kept.find(character) != std::string_view::npos)) {
            out += character;
        } else if (character == "\n") {
            out += "\\n";
        } else {
            for (const char byte : character) {
                char escape[8];
                std::snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned char>(byte));
                out += escape;
            }
        }
    }
}

} // namespace

std::string visible(std::string_view text) {
    std::string out;
    append(out, text, "");
    return out;
}

bool VisibleStream::Buffer::pass() {
    std::string text;
    append(text, line_, "\n\t");
    line_.clear();
    return to_.write(text.data(), static_cast<std::streamsize>(text.size())).good();
}

VisibleStream::Buffer::int_type VisibleStream::Buffer::overflow(int_type character) {
    if (traits_type::eq_int_type(character, traits_type::eof())) {
        return traits_type::not_eof(character);
    }
    line_ += traits_type::to_char_type(character);
    return line_.back() != '\n' || pass() ? character : traits_type::eof();
}

std::streamsize VisibleStream::Buffer::xsputn(const char* text, std::streamsize size) {
    const std::string_view added(text, static_cast<std::size_t>(size));
    line_ += added;
    return added.find('\n') == std::string_view::npos || pass() ? size : 0;
}

int VisibleStream::Buffer::sync() {
    return pass() && to_.flush().good() ? 0 : -1;
}

} // namespace Show
