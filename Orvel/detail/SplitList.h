#pragma once

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace Orvel::detail {

/// The items between commas without the white space around them; empty ones are dropped.
inline std::vector<std::string> splitList(std::string_view text) {
    constexpr const char* kWhiteSpace = " \t\r\n";
    std::vector<std::string> items;
    while (!text.empty()) {
        const auto comma = std::min(text.find(','), text.size());
        const std::string_view item = text.substr(0, comma);
        const auto first = item.find_first_not_of(kWhiteSpace);
        if (first != std::string_view::npos) {
            items.emplace_back(item.substr(first, item.find_last_not_of(kWhiteSpace) + 1 - first));
        }
        text.remove_prefix(std::min(comma + 1, text.size()));
    }
    return items;
}

} // namespace Orvel::detail
