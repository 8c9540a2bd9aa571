#include <Show/scene/JsonText.h>

#include <algorithm>
#include <charconv>

namespace Show {

std::size_t JsonText::skipSpace(std::size_t at) const {
    for (;;) {
        at = std::min(text_.find_first_not_of(" \t\r\n\xEF\xBB\xBF", at), text_.size());
        if (text_.compare(at, 2, "//") == 0) {
            at = std::min(text_.find('\n', at), text_.size());
        } else if (text_.compare(at, 2, "/*") == 0) {
            const std::size_t end = text_.find("*/", at + 2);
            at = end == std::string::npos ? text_.size() : end + 2;
        } else {
            return at;
        }
    }
}

std::size_t JsonText::skipText(std::size_t at) const {
    for (++at; at < text_.size() && text_[at] != '"'; ++at) {
        at += text_[at] == '\\' ? 1 : 0;
    }
    return std::min(at + 1, text_.size());
}

std::size_t JsonText::skipValue(std::size_t at) const {
    if (at < text_.size() && text_[at] == '"') {
        return skipText(at);
    }
    std::size_t depth = 0;
    while (at < text_.size()) {
        const char c = text_[at];
        if (c == '"') {
            at = skipText(at);
            continue;
        }
        if (c == '/' && depth > 0) {
            at = skipSpace(at);
            continue;
        }
        if (c == '{' || c == '[') {
            ++depth;
        } else if (c == '}' || c == ']') {
            if (depth == 0) {
                return at;
            }
            if (--depth == 0) {
                return at + 1;
            }
        } else if (
            depth == 0 &&
            (c == ',' || c == '/' || c == ' ' || c == '\t' || c == '\r' || c == '\n')) {
            return at;
        }
        ++at;
    }
    return at;
}

template <class Visit>
void JsonText::visitItems(std::size_t begin, Visit visit) const {
    const bool isObject = text_[begin] == '{';
    std::size_t at = skipSpace(begin + 1);
    while (at < text_.size() && text_[at] != '}' && text_[at] != ']') {
        Member item;
        if (isObject) {
            item.key = {at, skipText(at)};
            at = skipSpace(skipSpace(item.key.end) + 1); // the colon
        }
        item.value = {at, skipValue(at)};
        if (visit(item)) {
            return;
        }
        at = skipSpace(item.value.end);
        if (at < text_.size() && text_[at] == ',') {
            at = skipSpace(at + 1);
        }
    }
}

std::optional<JsonText::Member> JsonText::member(std::size_t object, std::string_view key) const {
    std::optional<Member> found;
    // Keys of scenes need no escape sequences; one that has them is taken for another key.
    visitItems(object, [&](const Member& item) {
        const std::string_view name(text_);
        if (name.substr(item.key.begin + 1, item.key.end - item.key.begin - 2) == key) {
            found = item;
        }
        return found.has_value();
    });
    return found;
}

std::optional<std::size_t> JsonText::element(std::size_t array, std::size_t index) const {
    std::optional<std::size_t> found;
    visitItems(array, [&](const Member& item) {
        if (index-- == 0) {
            found = item.value.begin;
        }
        return found.has_value();
    });
    return found;
}

std::optional<std::size_t> JsonText::object(std::string_view path) const {
    std::optional<std::size_t> at = skipSpace(0);
    while (at && !path.empty()) {
        const char here = *at < text_.size() ? text_[*at] : '\0';
        if (path.front() == '[') {
            std::size_t index = 0;
            const auto end = path.find(']');
            if (here != '[' || end == std::string_view::npos) {
                return std::nullopt;
            }
            std::from_chars(path.data() + 1, path.data() + end, index);
            at = element(*at, index);
            path.remove_prefix(end + 1);
        } else {
            path.remove_prefix(path.front() == '.' ? 1 : 0);
            const std::string_view key = path.substr(0, path.find_first_of(".["));
            const std::optional<Member> found = here == '{' ? member(*at, key) : std::nullopt;
            at = found ? std::optional(found->value.begin) : std::nullopt;
            path.remove_prefix(key.size());
        }
    }
    return at && *at < text_.size() && text_[*at] == '{' ? at : std::nullopt;
}

void JsonText::append(std::size_t object, std::string_view key, std::string_view value) {
    std::optional<Member> last;
    std::size_t beforeLast = object + 1;
    visitItems(object, [&](const Member& item) {
        beforeLast = last ? last->value.end : object + 1;
        last = item;
        return false;
    });
    std::string addition = '"' + std::string(key) + "\": " + std::string(value);
    if (!last) {
        text_.insert(object + 1, addition);
        return;
    }
    // In a line of its own if the last member begins one, indented as it is.
    const std::size_t lineBegin = text_.rfind('\n', last->key.begin);
    std::string separator = ", ";
    if (lineBegin != std::string::npos && lineBegin >= beforeLast &&
        text_.find_first_not_of(" \t", lineBegin + 1) == last->key.begin) {
        separator = ",\n" + text_.substr(lineBegin + 1, last->key.begin - lineBegin - 1);
    }
    text_.insert(last->value.end, separator + addition);
}

bool JsonText::has(std::string_view path, std::string_view key) const {
    const std::optional<std::size_t> place = object(path);
    return place && member(*place, key);
}

bool JsonText::set(std::string_view path, std::string_view key, std::string_view value) {
    return replace(path, key, key, value);
}

bool JsonText::replace(
    std::string_view path, std::string_view oldKey, std::string_view key, std::string_view value) {
    const std::optional<std::size_t> place = object(path);
    if (!place) {
        return false;
    }
    if (const std::optional<Member> found = member(*place, oldKey)) {
        text_.replace(found->value.begin, found->value.end - found->value.begin, value);
        text_.replace(
            found->key.begin, found->key.end - found->key.begin, '"' + std::string(key) + '"');
    } else {
        append(*place, key, value);
    }
    return true;
}

} // namespace Show
