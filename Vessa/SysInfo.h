#pragma once

#include <string>

#include <orvel_export.h>

namespace Vessa {

/// The user and machine of this process, as of the first call. Immutable.
class ORVEL_EXPORT SysInfo {
public:
    static const SysInfo& the();

    SysInfo(const SysInfo&) = delete;
    SysInfo& operator=(const SysInfo&) = delete;

    /// The name of the effective user, or the number if there is no name.
    [[nodiscard]] const std::string& user() const noexcept { return user_; }
    /// The name of this machine.
    [[nodiscard]] const std::string& host() const noexcept { return host_; }
    /// The operating system, its release and the processor, such as "Linux 6.1.0-18-amd64 x86_64".
    [[nodiscard]] const std::string& system() const noexcept { return system_; }

private:
    SysInfo();

    std::string user_;
    std::string host_;
    std::string system_;
};

} // namespace Vessa
