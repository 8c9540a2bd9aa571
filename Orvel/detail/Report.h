#pragma once

#include <Orvel/Diagnostic.h>
#include <Orvel/detail/LogLine.h>

#include <atomic>
#include <string>
#include <utility>

namespace Orvel::detail {

/// Whether the process has a sink. Hidden, so that asking costs one load.
ORVEL_NO_EXPORT extern std::atomic<bool> hasSink;

/// Whether anything takes a diagnostic of this level: the sink or the log.
inline bool isReported(Log::Level level) noexcept {
    return logPasses(level) || hasSink.load(std::memory_order_relaxed);
}

/// A diagnostic, to be completed by ORVEL_REPORT.
inline Diagnostic about(
    Diagnostic::Code code, Diagnostic::Part part = {}, std::string subject = {},
    std::string reason = {}) {
    return {code, Log::Level::Fatal, part, std::move(subject), std::move(reason), {}};
}

/// Hands a diagnostic to the sink. False if its lines are to be written.
bool isHandled(const Diagnostic& diagnostic) noexcept;

/// Completes a diagnostic with a log line, and reports it.
void report(Diagnostic diagnostic, const Log::Site& site, const char* format, ...) noexcept
    __attribute__((format(printf, 3, 4)));

} // namespace Orvel::detail

/// Reports a diagnostic whose rendering is one line of the library's own module. The arguments are
/// evaluated only if something takes it.
#define ORVEL_REPORT(level, diagnostic, ...)                                                       \
    do {                                                                                           \
        if (::Orvel::detail::isReported(::Orvel::Log::Level::level)) {                             \
            ::Orvel::detail::report(                                                               \
                diagnostic,                                                                        \
                {::Orvel::Log::Level::level, ::Orvel::LogModuleName, __FILE__, __LINE__,           \
                 __PRETTY_FUNCTION__},                                                             \
                __VA_ARGS__);                                                                      \
        }                                                                                          \
    } while (false)
