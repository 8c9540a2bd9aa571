#pragma once

#include <string_view>

namespace Corvid::detail {

/// Compares texts in a time that depends on their sizes only.
[[nodiscard]] bool isSameSecret(std::string_view a, std::string_view b);

} // namespace Corvid::detail
