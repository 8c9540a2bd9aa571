#include <Corvid/detail/net/ConnectionContext.h>

#include <utility>

namespace Corvid::detail {

void ConnectionContext::setDiagnostic(MultiCommunicator::Diagnostic diagnostic) {
    const Vessa::Lock lock(mutex_);
    diagnostic_ = std::move(diagnostic);
}

void ConnectionContext::report(
    MultiCommunicator::Severity severity, const std::string& text) const {
    MultiCommunicator::Diagnostic diagnostic;
    {
        const Vessa::Lock lock(mutex_);
        diagnostic = diagnostic_;
    }
    if (diagnostic) {
        diagnostic(severity, text);
    }
}

void ConnectionContext::nudge() {
    if (stream.addWork()) {
        loop->wake();
    }
}

} // namespace Corvid::detail
