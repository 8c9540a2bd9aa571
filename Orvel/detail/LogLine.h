#pragma once

#include <Orvel/Log.h>

#include <atomic>

#include <orvel_export.h>

namespace Orvel::detail {

/// The log's level. Hidden and apart from the log object, so that a filtered line costs one load
/// and one branch: no call, no look-up through the global offset table, no check for creation.
ORVEL_NO_EXPORT extern std::atomic<int> logLevel;

inline bool logPasses(Log::Level level) noexcept {
    return static_cast<int>(level) <= logLevel.load(std::memory_order_relaxed);
}

} // namespace Orvel::detail

/// Writes one line of the library's own module; the arguments are evaluated only if it passes.
#define ORVEL_LOG(level, ...)                                                                      \
    do {                                                                                           \
        if (::Orvel::detail::logPasses(::Orvel::Log::Level::level)) {                              \
            ::Orvel::Log::the().write(                                                             \
                {::Orvel::Log::Level::level, ::Orvel::LogModuleName, __FILE__, __LINE__,           \
                 __PRETTY_FUNCTION__},                                                             \
                __VA_ARGS__);                                                                      \
        }                                                                                          \
    } while (false)
