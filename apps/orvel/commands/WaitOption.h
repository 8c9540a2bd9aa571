#pragma once

#include <CLI/App.hpp>

#include <functional>
#include <string>
#include <vector>

namespace OrvelTool {

/// The option --wait-for-device: a service may start before a sound card is plugged in, a share is
/// mounted or the network is up, and waits for them.
class WaitOption {
public:
    /// Names something missing, such as "a sound device"; returns an empty text when it is present.
    using Need = std::function<std::string()>;

    void declare(CLI::App& app);

    /// If the option was given, waits until nothing is missing. Reports each wait once and extends
    /// systemd's start timeout. Returns false if a signal ended the wait. Call it before the
    /// process starts any thread.
    bool wait(const std::vector<Need>& needs) const;

private:
    bool given_ = false;
};

/// Returns `address`, such as "192.0.2.1", if no interface has it; empty otherwise, and for names
/// and 0.0.0.0.
std::string missingAddress(const std::string& address);
/// Runs `opens` in a child process with standard error discarded, because sound libraries look for
/// devices only once per process. Returns its result.
bool worksElsewhere(const std::function<bool()>& opens);

} // namespace OrvelTool
