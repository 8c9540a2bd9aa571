#pragma once

#include <cstddef>
#include <string>

namespace Show {

/// Random hexadecimal digits, of 4 bits each, of the system's generator. Throws std::exception if
/// it gives none.
[[nodiscard]] std::string randomHex(std::size_t digits);

} // namespace Show
