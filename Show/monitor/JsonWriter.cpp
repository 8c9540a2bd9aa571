#include <Show/monitor/JsonWriter.h>

#include <Show/detail/ValidText.h>

#include <algorithm>

namespace Show {

namespace {

bool isPlain(char c) {
    return c >= 0x20 && c < 0x7F && c != '"' && c != '\\';
}

bool isContinuation(char c) {
    return (static_cast<unsigned char>(c) & 0xC0U) == 0x80;
}

} // namespace

JsonWriter& JsonWriter::plain(std::string_view text) {
    if (comma_) {
        out_ += ',';
    }
    out_ += text;
    comma_ = true;
    return *this;
}

JsonWriter& JsonWriter::open(char bracket) {
    plain({&bracket, 1});
    comma_ = false;
    return *this;
}

JsonWriter& JsonWriter::close(char bracket) {
    out_ += bracket;
    comma_ = true;
    return *this;
}

JsonWriter& JsonWriter::key(std::string_view name) {
    plain("\"");
    out_ += name; // a constant that needs no escaping
    out_ += "\":";
    comma_ = false;
    return *this;
}

JsonWriter& JsonWriter::textKey(std::string_view name) {
    value(name);
    out_ += ':';
    comma_ = false;
    return *this;
}

JsonWriter& JsonWriter::value(bool value) {
    return plain(value ? "true" : "false");
}

JsonWriter& JsonWriter::null() {
    return plain("null");
}

JsonWriter& JsonWriter::value(std::string_view text) {
    const std::size_t size = text.size();
    if (size > kMaxTextBytes) {
        std::size_t end = kMaxTextBytes;
        while (end > kMaxTextBytes - 3 && isContinuation(text[end])) { // inside a UTF-8 character
            --end;
        }
        text = text.substr(0, end);
    }
    plain("\"");
    if (std::all_of(text.begin(), text.end(), isPlain)) { // the usual case
        out_ += text;
    } else {
        for (const char c : validText(text)) {
            constexpr std::string_view kDigits = "0123456789abcdef";
            if (c == '"' || c == '\\') {
                out_ += '\\';
                out_ += c;
            } else if (static_cast<unsigned char>(c) < 0x20) {
                const unsigned code = static_cast<unsigned char>(c);
                out_ += "\\u00";
                out_ += kDigits[code >> 4U];
                out_ += kDigits[code & 15U];
            } else {
                out_ += c;
            }
        }
    }
    if (text.size() < size) {
        omitted_ += size - text.size();
        out_ += "\xE2\x80\xA6"; // an ellipsis
    }
    out_ += '"';
    return *this;
}

} // namespace Show
