#pragma once

#include <signal.h>

namespace OrvelTool {

/// Turns Ctrl-C, SIGTERM and SIGHUP into a flag during its lifetime, for an orderly shutdown. A
/// second signal ends the process at once. SIGHUP stays ignored if it was (nohup). At most one
/// instance at a time, created and destroyed on the main thread.
class StopSignals {
public:
    StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;
    ~StopSignals();

    /// Whether such a signal has arrived. Any thread.
    [[nodiscard]] static bool came() noexcept;

private:
    struct sigaction formerInterrupt_ {};
    struct sigaction formerTerminate_ {};
    struct sigaction formerHangUp_ {};
};

} // namespace OrvelTool
