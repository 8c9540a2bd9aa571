#pragma once

#include <signal.h>

namespace OrvelTool {

/// Turns Ctrl-C, SIGTERM and SIGHUP into a flag for as long as it lives, so that work can end in
/// order. A second one ends the process at once. SIGHUP stays ignored where it is (nohup). One at a
/// time; made and destroyed on the main thread.
class StopSignals {
public:
    StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;
    ~StopSignals();

    /// Whether such a signal has come. Any thread.
    [[nodiscard]] static bool came() noexcept;

private:
    struct sigaction formerInterrupt_ {};
    struct sigaction formerTerminate_ {};
    struct sigaction formerHangUp_ {};
};

} // namespace OrvelTool
