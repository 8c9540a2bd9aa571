#pragma once

#include <Corvid/Loop.h>
#include <Corvid/MultiCommunicator.h>
#include <Corvid/detail/net/OutgoingStream.h>
#include <Vessa/Mutex.h>

#include <memory>
#include <string>

namespace Corvid::detail {

/// Shared by the connections of one hub, which keep it alive. Synchronised, except for the loop's
/// own rules.
// The stream keeps its writer's members in a cache line of their own.
// NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding)
class ConnectionContext {
public:
    /// Throws std::system_error if the process has no descriptor left.
    ConnectionContext() = default;

    const std::shared_ptr<Loop> loop = std::make_shared<Loop>();
    OutgoingStream stream;

    void setDiagnostic(MultiCommunicator::Diagnostic diagnostic);
    /// Passes a line to the host.
    void report(MultiCommunicator::Severity severity, const std::string& text) const;
    /// Makes the loop thread look for work soon.
    void nudge();

private:
    mutable Vessa::Mutex mutex_;
    MultiCommunicator::Diagnostic diagnostic_ ORVEL_GUARDED_BY(mutex_);
};

} // namespace Corvid::detail
