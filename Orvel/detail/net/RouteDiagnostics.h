#pragma once

#include <Corvid/MultiCommunicator.h>
#include <Orvel/detail/Report.h>

#include <string>

namespace Orvel::detail {

/// Returns a handler that logs the network's diagnostics as lines of `who`, which must be a
/// literal.
inline Corvid::MultiCommunicator::Diagnostic routeDiagnostics(const char* who) {
    return [who](Corvid::MultiCommunicator::Severity severity, const std::string& text) {
        if (severity == Corvid::MultiCommunicator::Severity::Notice) {
            ORVEL_REPORT(
                Notice, about(Diagnostic::Code::Network, {}, {}, text), "%s: %s\n", who,
                text.c_str());
        } else {
            ORVEL_REPORT(
                Warning, about(Diagnostic::Code::Network, {}, {}, text), "%s: %s\n", who,
                text.c_str());
        }
    };
}

/// Returns a handler for Vessa::Thread::setFailureHandler, which logs the end of a receive thread
/// as a line of `who`.
inline auto routeFailure(const char* who) {
    return [who](const std::string& reason) {
        ORVEL_REPORT(
            Fatal, about(Diagnostic::Code::Thread, {}, {}, reason),
            "%s: the receive thread has failed and stopped: %s\n", who, reason.c_str());
    };
}

} // namespace Orvel::detail
