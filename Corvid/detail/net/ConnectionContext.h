#pragma once

#include <Corvid/Loop.h>
#include <Corvid/MultiCommunicator.h>
#include <Corvid/detail/net/OutgoingStream.h>
#include <Vessa/Mutex.h>

#include <memory>
#include <string>

namespace Corvid::detail {

/// What the connections of one hub share and keep alive. Synchronised, but for the loop's own
/// rules.
class ConnectionContext {
public:
    /// Throws std::system_error when the process has no descriptor left.
    ConnectionContext() = default;

    const std::shared_ptr<Loop> loop = std::make_shared<Loop>();
    OutgoingStream stream;

    void setDiagnostic(MultiCommunicator::Diagnostic diagnostic);
    /// Gives the host a line.
    void report(MultiCommunicator::Severity severity, const std::string& text) const;
    /// Has the loop thread look for work soon.
    void nudge();

private:
    mutable Vessa::Mutex mutex_;
    MultiCommunicator::Diagnostic diagnostic_ ORVEL_GUARDED_BY(mutex_);
};

} // namespace Corvid::detail
