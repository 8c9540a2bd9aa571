#include <Show/osc/OscPath.h>

#include <Show/scene/SceneFile.h>

#include <algorithm>
#include <charconv>
#include <lo/lo.h>

namespace Show {

std::vector<std::string_view> splitPath(std::string_view path) {
    std::vector<std::string_view> words;
    while (!path.empty()) {
        path.remove_prefix(1); // a slash
        const auto end = std::min(path.find('/'), path.size());
        words.push_back(path.substr(0, end));
        path.remove_prefix(end);
    }
    return words;
}

bool isPattern(std::string_view word) {
    return word.find_first_of("*?[{") != std::string_view::npos;
}

bool fits(std::string_view word, const std::string& name) {
    return word == name ||
           (isPattern(word) && lo_pattern_match(name.c_str(), std::string(word).c_str()) != 0);
}

bool fits(const std::vector<std::string_view>& words, std::string_view prefix, std::size_t more) {
    const auto count = static_cast<std::size_t>(std::count(prefix.begin(), prefix.end(), '/')) - 1;
    if (words.size() != count + more) {
        return false;
    }
    for (std::size_t i = 0; i < count; ++i) {
        prefix.remove_prefix(1); // a slash
        const std::string_view name = prefix.substr(0, prefix.find('/'));
        if (words[i] != name && !fits(words[i], std::string(name))) {
            return false;
        }
        prefix.remove_prefix(name.size());
    }
    return true;
}

bool toId(std::string_view word, int& id) {
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), id);
    return error == std::errc() && end == word.data() + word.size() && id > 0 && id <= kMaxId;
}

std::string fullPath(std::string_view prefix, int id, std::string_view name) {
    return std::string(prefix) + (id == 0 ? "" : std::to_string(id) + "/") + std::string(name);
}

} // namespace Show
