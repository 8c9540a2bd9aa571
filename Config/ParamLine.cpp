#include <Config/ParamLine.h>

#include <string_view>

namespace Config {

namespace {

bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

bool isKeyCharacter(char c) {
    return isLetter(c) || (c >= '0' && c <= '9') || c == '-' || c == '.';
}

class Parser {
public:
    explicit Parser(std::string_view text) : text_(text) {}

    /// Moves to the next parameter; false at the end of the text.
    bool next() {
        while (!atEnd() && isSpace(peek())) {
            ++position_;
        }
        return !atEnd();
    }

    std::string key() {
        if (!isLetter(peek())) {
            throw ParamLine::Exception(
                position_ + 1, "expected a parameter name, found " + found());
        }
        const std::size_t start = position_;
        while (!atEnd() && isKeyCharacter(peek())) {
            ++position_;
        }
        std::string name(text_.substr(start, position_ - start));
        if (atEnd() || peek() != '=') {
            throw ParamLine::Exception(
                position_ + 1, "expected \"=\" after \"" + name + "\", found " + found());
        }
        ++position_;
        return name;
    }

    std::string value() {
        std::string result;
        while (!atEnd() && !isSpace(peek())) {
            const char c = peek();
            if (c == '"' || c == '\'') {
                quoted(c, result);
            } else {
                character(true, result);
            }
        }
        return result;
    }

private:
    [[nodiscard]] bool atEnd() const { return position_ == text_.size(); }
    [[nodiscard]] char peek() const { return text_[position_]; }
    [[nodiscard]] std::string found() const {
        return atEnd() ? "the end of the text" : '"' + std::string(1, peek()) + '"';
    }

    void character(bool escapes, std::string& result) {
        const std::size_t start = position_;
        char c = text_[position_++];
        if (escapes && c == '\\') {
            if (atEnd()) {
                throw ParamLine::Exception(
                    start + 1,
                    "expected a character after the backslash, found the end of the text");
            }
            c = text_[position_++];
            c = c == 'n' ? '\n' : c == 't' ? '\t' : c == 'r' ? '\r' : c;
        }
        result += c;
    }

    void quoted(char quote, std::string& result) {
        const std::size_t start = position_++;
        while (!atEnd() && peek() != quote) {
            character(quote == '"', result);
        }
        if (atEnd()) {
            throw ParamLine::Exception(
                start + 1, std::string("the quote ") + quote + " is never closed");
        }
        ++position_;
    }

    std::string_view text_;
    std::size_t position_ = 0;
};

} // namespace

ParamLine::Exception::Exception(std::size_t column, const std::string& message)
    : std::runtime_error("column " + std::to_string(column) + ": " + message), column_(column) {}

void ParamLine::setParamLine(const char* text) {
    params_.clear();
    Parser parser(text == nullptr ? "" : text);
    while (parser.next()) {
        const std::string name = parser.key();
        params_[name] = parser.value();
    }
}

} // namespace Config
