#pragma once

#include <chrono>
#include <string>

namespace OrvelTool {

/// Reports the state of the service to systemd by the sd_notify protocol. Does nothing if systemd
/// did not start this process. Confined to one thread at a time.
class ServiceManager {
public:
    using Clock = std::chrono::steady_clock;

    /// Reads the socket's name and the watchdog's interval from the environment.
    ServiceManager();

    void ready() const { notify("READY=1"); }
    /// Reports a wait during startup and extends the start timeout. Call it every few seconds.
    void waiting(const std::string& missing) const;
    void stopping() const { notify("STOPPING=1"); }
    /// The status line of `systemctl status`.
    void status(const std::string& text) const { notify("STATUS=" + text); }
    /// Feeds the watchdog, twice per interval. Call it regularly.
    void alive(Clock::time_point now);

private:
    void notify(const std::string& text) const;

    std::string socket_; // empty without systemd; begins with '@' for an abstract socket
    Clock::duration interval_ = Clock::duration::zero(); // zero without a watchdog
    Clock::time_point next_;
};

} // namespace OrvelTool
