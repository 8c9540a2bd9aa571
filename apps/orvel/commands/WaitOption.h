#pragma once

#include <CLI/App.hpp>

#include <functional>
#include <string>
#include <vector>

namespace OrvelTool {

/// The option --wait-for-device of a server: a service starts before a sound card is plugged in, a
/// share is mounted or a network is up, and waits for them.
class WaitOption {
public:
    /// What is missing, such as "a sound device"; empty when it is there.
    using Need = std::function<std::string()>;

    void declare(CLI::App& app);

    /// With the option, waits until nothing is missing, reports each wait once, and keeps systemd
    /// patient. False if a signal has ended the wait. The process must have no thread yet.
    bool wait(const std::vector<Need>& needs) const;

private:
    bool given_ = false;
};

/// The scene or the first of its sound files that does not exist; empty if there is none. Other
/// mistakes are left to whoever reads the file.
std::string missingFile(const std::string& scenePath);
/// The address, such as "192.0.2.1", if no interface has it; empty for names and for 0.0.0.0.
std::string missingAddress(const std::string& address);
/// What `opens` does is done in a process of its own, with nothing on its standard error: sound
/// libraries look for devices once in a process. False if it gives false.
bool worksElsewhere(const std::function<bool()>& opens);

} // namespace OrvelTool
