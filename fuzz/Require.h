#pragma once

#include <cstdlib>

/// Ends the process, which the fuzzer reports, unless the condition holds.
inline void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}
