#pragma once

#include <Orvel/detail/net/Changes.h>

#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace Orvel::Test {

inline void print(std::ostream& out, const std::vector<std::string>& texts) {
    out << testing::PrintToString(texts);
}
inline void print(std::ostream& out, const std::vector<unsigned char>& bytes) {
    out << bytes.size() << ' ' << std::string(bytes.begin(), bytes.end());
}
void print(std::ostream& out, const auto& value) {
    out << value;
}

/// Prints the event's own values in the order of its fields and returns true if it is of that
/// class.
template <class Concrete>
bool print(std::ostream& out, const Corvid::Event& event) {
    const auto* concrete = dynamic_cast<const Concrete*>(&event);
    if (concrete != nullptr) {
        auto one = [&out, separator = ""](const auto& field) mutable {
            out << std::exchange(separator, " ");
            print(out, field);
        };
        std::apply(
            [&one](const auto&... field) { (one(field), ...); }, Concrete::fields(*concrete));
    }
    return concrete != nullptr;
}

/// An event's own values, in the order of its fields.
inline std::string values(const Corvid::Event& event) {
    std::ostringstream text;
    const auto printOne = [&]<class... Classes>(std::tuple<Classes...>* /*of*/) {
        (void)((!std::is_same_v<Classes, CommandEvent> && print<Classes>(text, event)) || ...);
    };
    printOne(static_cast<detail::Events*>(nullptr));
    return text.str();
}

} // namespace Orvel::Test
