#pragma once

#include <chrono>
#include <string>

namespace OrvelTool {

/// Tells systemd, if it has started this process, how the service is doing, by the datagrams that
/// its sd_notify protocol consists of. Does nothing otherwise. Confined to one thread at a time.
class ServiceManager {
public:
    using Clock = std::chrono::steady_clock;

    /// Takes the socket's name and the watchdog's time from the environment.
    ServiceManager();

    void ready() const { notify("READY=1"); }
    /// Something that the start needs is not there yet; to be called every few seconds.
    void waiting(const std::string& missing) const;
    void stopping() const { notify("STOPPING=1"); }
    /// What the service is doing, for `systemctl status`.
    void status(const std::string& text) const { notify("STATUS=" + text); }
    /// To be called regularly: feeds the watchdog, twice in its time.
    void alive(Clock::time_point now);

private:
    void notify(const std::string& text) const;

    std::string socket_; // empty without systemd; begins with '@' when it is no file
    Clock::duration interval_ = Clock::duration::zero(); // zero without watchdog
    Clock::time_point next_;
};

} // namespace OrvelTool
