#include <Show/scene/JsonProblem.h>

#include <Show/detail/ValidText.h>
#include <Show/scene/JsonTree.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>
#include <vector>

namespace Show {

namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kDigits = "0123456789";
constexpr std::string_view kHexDigits = "0123456789abcdefABCDEF";
constexpr std::string_view kWord = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ_$"
                                   "0123456789.+-";

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c == '$';
}

std::string lowered(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    });
    return result;
}

std::string hexadecimal(unsigned number, int digits) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%0*X", digits, number);
    return text.data();
}

/// Parses JSON with comments up to the first error. It builds no values; JsonTree does that.
/// Parsing functions return false on an error.
class MistakeFinder {
public:
    explicit MistakeFinder(std::string_view text) : text_(text) {}

    std::optional<JsonProblem> find() {
        if (text_.starts_with("\xFF\xFE") || text_.starts_with("\xFE\xFF") ||
            text_.substr(0, 2).find('\0') != std::string_view::npos) {
            fail(0, "expected UTF-8, found UTF-16; save the file as UTF-8");
            return mistake_;
        }
        at_ = text_.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0;
        while (readBlanks() && at_ < text_.size() && readNext()) {
            previousEnd_ = at_;
        }
        if (!mistake_ && next_ != Next::End) {
            fail(
                at_, open_.empty() ? "expected a scene, found an empty file"
                                   : "expected " + closing() + ", found the end of the file");
        }
        return mistake_;
    }

private:
    enum class Next { Value, FirstValue, Key, FirstKey, Colon, Comma, End };

    bool fail(std::size_t offset, std::string words) {
        mistake_ = problemAt(text_, offset, std::move(words));
        return false;
    }

    [[nodiscard]] char peek(std::size_t ahead = 0) const {
        return at_ + ahead < text_.size() ? text_[at_ + ahead] : '\0';
    }
    /// The first position from `start` on that holds none of `characters`.
    [[nodiscard]] std::size_t skip(std::string_view characters, std::size_t start) const {
        return std::min(text_.find_first_not_of(characters, start), text_.size());
    }
    [[nodiscard]] std::string_view range(std::size_t begin, std::size_t end) const {
        return text_.substr(begin, end - begin);
    }
    [[nodiscard]] bool inObject() const { return !open_.empty() && text_[open_.back()] == '{'; }

    /// The token here, for a message: a whole word or number, otherwise one character.
    [[nodiscard]] std::string found() const {
        if (at_ == text_.size()) {
            return "the end of the file";
        }
        if (const std::size_t end = skip(kWord, at_); end > at_) {
            return printable(range(at_, end), 30);
        }
        const std::size_t length = characterLength(text_, at_);
        const auto byte = static_cast<unsigned char>(text_[at_]);
        if (length == 0 || byte < ' ' || byte == 127) {
            return "the byte 0x" + hexadecimal(byte, 2);
        }
        const std::string_view character = text_.substr(at_, length);
        if (character == kByteOrderMark) {
            return "a byte order mark";
        }
        if (character == "\u00A0") {
            return "a no-break space";
        }
        return character == "\"" ? "a text" : '"' + std::string(character) + '"';
    }

    /// The closing bracket of the innermost open one, with the position of the latter.
    [[nodiscard]] std::string closing() const {
        const JsonProblem opening = problemAt(text_, open_.back(), {});
        return std::string(inObject() ? R"("}" for the "{")" : R"("]" for the "[")") + " in line " +
               std::to_string(opening.line) + ", column " + std::to_string(opening.column);
    }

    /// Skips white space and comments.
    bool readBlanks() {
        for (;;) {
            at_ = skip(" \t\r\n", at_);
            if (peek() != '/') {
                return true;
            }
            const std::size_t begin = at_;
            if (peek(1) == '/') {
                at_ = std::min(text_.find_first_of("\r\n", at_), text_.size());
            } else if (peek(1) == '*') {
                const auto end = text_.find("*/", at_ + 2);
                if (end == std::string_view::npos) {
                    return fail(
                        at_, R"(expected "*/" at the end of the comment that begins here, )"
                             "found the end of the file");
                }
                at_ = end + 2;
            } else {
                return fail(at_, R"(expected "//" or "/*" to begin a comment, found "/")");
            }
            // JsonTree's parser would take it for the end of the file.
            if (const auto null = range(begin, at_).find('\0'); null != std::string_view::npos) {
                return fail(begin + null, "expected text in the comment, found the byte 0x00");
            }
        }
    }

    bool readNext() {
        const char c = peek();
        switch (next_) {
        case Next::FirstValue:
            return c == ']' ? readClosing() : readValue();
        case Next::Value:
            return readValue();
        case Next::FirstKey:
            return c == '}' ? readClosing() : readKey();
        case Next::Key:
            return readKey();
        case Next::Colon:
            if (c != ':') {
                return fail(at_, R"(expected ":" after the key )" + key_ + ", found " + found());
            }
            ++at_;
            next_ = Next::Value;
            return true;
        case Next::Comma:
            return readComma();
        case Next::End:
            break;
        }
        return fail(
            at_, "expected the end of the file, found " + found() +
                     (c == '}' || c == ']' ? ", which closes nothing; remove it" : ""));
    }

    bool readClosing() {
        const char c = text_[at_];
        if ((c == '}') != inObject()) {
            return fail(at_, "expected " + closing() + ", found " + found());
        }
        ++at_;
        open_.pop_back();
        next_ = open_.empty() ? Next::End : Next::Comma;
        return true;
    }

    bool readValue() {
        const char c = peek();
        if (c == '{' || c == '[') {
            open_.push_back(at_++);
            next_ = c == '{' ? Next::FirstKey : Next::FirstValue;
            return true;
        }
        const bool good = c == '"'                 ? readText()
                          : c == '-' || isDigit(c) ? readNumber()
                          : isLetter(c)            ? readWord()
                                                   : failAtStart("a value");
        next_ = open_.empty() ? Next::End : Next::Comma;
        return good;
    }

    bool readKey() {
        const std::size_t start = at_;
        if (peek() == '"') {
            const bool good = readText();
            key_ = printable(range(start, at_), 30);
            next_ = Next::Colon;
            return good;
        }
        const std::string word = found();
        if (isLetter(peek())) {
            return fail(
                at_, "expected a key in double quotes, found " + word + "; write \"" + word + '"');
        }
        if (isDigit(peek()) && next_ == Next::Key && previousEnd_ == at_ && at_ > 1 &&
            isDigit(text_[at_ - 2])) {
            return fail(at_ - 1, R"(expected a point in a decimal number, found ","; write ".")");
        }
        return failAtStart("a key in double quotes");
    }

    /// A character that can start neither a value nor a key.
    bool failAtStart(const char* expected) {
        const char c = peek();
        const bool afterComma = next_ == Next::Key || (next_ == Next::Value && !inObject());
        if (next_ == Next::Value && inObject() && (c == ',' || c == '}')) {
            return fail(at_, "expected a value for the key " + key_ + ", found " + found());
        }
        if (c == ',') {
            return fail(
                at_, std::string("expected ") + expected + R"(, found ","; remove the comma)");
        }
        if ((c == ']' || c == '}') && afterComma && !open_.empty()) {
            return fail(
                previousEnd_ - 1,
                std::string("expected no comma before \"") + c + R"(", found one; remove it)");
        }
        std::string words = std::string("expected ") + expected + ", found " + found();
        if (c == '\'' || text_.substr(at_, 3) == "\u201C" || text_.substr(at_, 3) == "\u201D" ||
            text_.substr(at_, 3) == "\u201E" || text_.substr(at_, 3) == "\u2018") {
            words += R"(; write straight double quotes ("))";
        } else if (c == '#') {
            words += R"(; a comment begins with "//")";
        } else if (c == '+' && isDigit(peek(1))) {
            words += "; leave out the plus sign";
        } else if (c == '.' && isDigit(peek(1))) {
            words += "; write 0" + found();
        }
        return fail(at_, std::move(words));
    }

    bool readComma() {
        const char c = peek();
        if (c == ',') {
            ++at_;
            next_ = inObject() ? Next::Key : Next::Value;
            return true;
        }
        if (c == '}' || c == ']') {
            return readClosing();
        }
        if (c == '"' || c == '{' || c == '[' || c == '-' || isDigit(c) || isLetter(c)) {
            return fail(
                previousEnd_,
                inObject() ? R"(expected a comma before the next key, found none; add ",")"
                           : R"(expected a comma before the next value, found none; add ",")");
        }
        return fail(
            at_, std::string(R"(expected "," or ")") + (inObject() ? '}' : ']') + "\", found " +
                     found());
    }

    bool readWord() {
        const std::size_t end = skip(kWord, at_);
        const std::string_view word = range(at_, end);
        if (word == "true" || word == "false" || word == "null") {
            at_ = end;
            return true;
        }
        const std::string lower = lowered(word);
        std::string advice = "; a text stands in double quotes: \"" + printable(word, 30) + '"';
        if (lower == "nan" || lower == "inf" || lower == "infinity") {
            advice = "; write a finite number";
        } else if (lower == "true" || lower == "false" || lower == "null") {
            advice = "; write " + lower;
        } else if (lower == "none" || lower == "nil" || lower == "undefined") {
            advice = "; write null";
        }
        return fail(at_, "expected a value, found " + printable(word, 30) + advice);
    }

    bool readNumber() {
        const std::size_t start = at_;
        const std::string word = found();
        const auto failWith = [&](const std::string& expected) {
            return fail(start, "expected " + expected + ", found " + word);
        };
        at_ += peek() == '-' ? 1U : 0U;
        const std::size_t digits = at_;
        at_ = skip(kDigits, at_);
        if (at_ == digits) {
            return failWith(
                lowered(word) == "-infinity" || lowered(word) == "-inf"
                    ? "a finite number"
                    : "a digit after the minus sign");
        }
        if (text_[digits] == '0' && at_ > digits + 1) {
            return failWith("a number without zeros before it");
        }
        if (peek() == '.') {
            const std::size_t fraction = ++at_;
            at_ = skip(kDigits, at_);
            if (at_ == fraction) {
                return failWith("a digit after the decimal point");
            }
        }
        if (peek() == 'e' || peek() == 'E') {
            at_ += peek(1) == '+' || peek(1) == '-' ? 2U : 1U;
            const std::size_t exponent = at_;
            at_ = skip(kDigits, at_);
            if (at_ == exponent) {
                return failWith("digits in the exponent of the number");
            }
        }
        return skip(kWord, at_) == at_ || failWith("a decimal number");
    }

    bool readText() {
        const std::size_t start = at_++;
        for (;;) {
            const auto c = static_cast<unsigned char>(peek());
            if (at_ == text_.size() || c == '\n' || c == '\r') {
                return fail(
                    start, std::string("expected a quote (\") at the end of the text that begins "
                                       "here, found the end of the ") +
                               (at_ == text_.size() ? "file" : "line"));
            }
            if (c == '"') {
                ++at_;
                return true;
            }
            if (c == '\t') {
                return fail(at_, R"(expected no tab within a text, found one; write \t)");
            }
            if (c < ' ') {
                const std::string code = hexadecimal(c, 4);
                std::string fault = "expected no control character within a text, found U+";
                return fail(at_, fault.append(code).append("; write \\u").append(code));
            }
            if (c == '\\') {
                if (!readEscape()) {
                    return false;
                }
                continue;
            }
            const std::size_t length = characterLength(text_, at_);
            if (length == 0) {
                return fail(at_, "expected UTF-8, found " + found() + "; save the file as UTF-8");
            }
            at_ += length;
        }
    }

    bool readEscape() {
        constexpr std::string_view kEscapes = R"("\/bfnrtu)";
        const char c = peek(1);
        if (c == '\0' || kEscapes.find(c) == std::string_view::npos) {
            const std::size_t backslash = at_++;
            const std::string letter = c > ' ' && c < 127 ? std::string("\\") + c : found();
            return fail(
                backslash, R"(expected one of "\/bfnrtu after a backslash, found )" + letter +
                               R"(; a backslash itself is written \\)");
        }
        if (c != 'u') {
            at_ += 2;
            return true;
        }
        const std::size_t start = at_;
        const std::optional<unsigned> first = readHexDigits();
        const auto isHigh = [](unsigned unit) { return unit >= 0xD800 && unit <= 0xDBFF; };
        const auto isLow = [](unsigned unit) { return unit >= 0xDC00 && unit <= 0xDFFF; };
        std::optional<unsigned> second;
        if (first && isHigh(*first) && peek() == '\\' && peek(1) == 'u') {
            second = readHexDigits();
            if (!second) {
                return false;
            }
        }
        if (first && (isLow(*first) || (isHigh(*first) && !(second && isLow(*second))))) {
            return fail(
                start, R"(expected \uD800 to \uDBFF and \uDC00 to \uDFFF in pairs, found )" +
                           std::string(range(start, start + 6)) + " without its partner");
        }
        return first.has_value();
    }

    /// Parses the digits after "\u".
    std::optional<unsigned> readHexDigits() {
        const std::string_view digits = text_.substr(at_ + 2, 4);
        if (digits.size() < 4 || digits.find_first_not_of(kHexDigits) != std::string_view::npos) {
            fail(at_, R"(expected four hexadecimal digits after "\u", found others)");
            return std::nullopt;
        }
        at_ += 6;
        return static_cast<unsigned>(std::stoul(std::string(digits), nullptr, 16));
    }

    std::string_view text_;
    std::size_t at_ = 0;
    std::size_t previousEnd_ = 0; // of the last token, without white space
    Next next_ = Next::Value;
    std::vector<std::size_t> open_; // offsets of the open brackets
    std::string key_;               // the last one
    std::optional<JsonProblem> mistake_;
};

} // namespace

JsonProblem problemAt(std::string_view text, std::size_t offset, std::string words) {
    const std::string_view before = text.substr(0, offset);
    const auto lineEnd = before.rfind('\n');
    std::string_view line = lineEnd == std::string_view::npos ? before : before.substr(lineEnd + 1);
    if (line.data() == text.data() && line.starts_with(kByteOrderMark)) {
        line.remove_prefix(kByteOrderMark.size());
    }
    const auto isStart = [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; };
    return {
        1 + static_cast<int>(std::count(before.begin(), before.end(), '\n')),
        1 + static_cast<int>(std::count_if(line.begin(), line.end(), isStart)), std::move(words)};
}

std::optional<JsonProblem> findProblem(std::string_view text) {
    return MistakeFinder(text).find();
}

} // namespace Show
