#pragma once

#include <chrono>
#include <cstdint>

namespace Orvel::detail {

/// Nanoseconds of this machine's monotonic clock, or of the system's.
inline std::int64_t nanosecondsNow(bool system) {
    using namespace std::chrono;
    return duration_cast<nanoseconds>(
               system ? system_clock::now().time_since_epoch()
                      : steady_clock::now().time_since_epoch())
        .count();
}
inline std::int64_t nanosecondsOf(std::chrono::steady_clock::time_point time) {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(time.time_since_epoch()).count();
}

} // namespace Orvel::detail
