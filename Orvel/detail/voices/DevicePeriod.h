#pragma once

#include <optional>
#include <string>

namespace Orvel::detail {

/// Asks OpenAL Soft for the period with which the sound device has a latency. OpenAL Soft has no
/// call for that: it takes the period from its settings, which it reads when it is first used in a
/// process. This adds the period to these settings, behind those of the user, by means of a
/// temporary file and the environment variable ALSOFT_CONF, and undoes that at the end.
///
/// Create it before a thread that uses OpenAL, and keep it until a device has been opened.
/// Confined.
class DevicePeriod {
public:
    /// The period for a latency, in frames.
    static unsigned framesFor(unsigned milliseconds, unsigned rate);

    /// Without a temporary file it has no effect.
    DevicePeriod(unsigned milliseconds, unsigned rate);
    DevicePeriod(const DevicePeriod&) = delete;
    DevicePeriod& operator=(const DevicePeriod&) = delete;
    ~DevicePeriod();

private:
    std::string path_; // empty without a file
    std::optional<std::string> former_;
};

} // namespace Orvel::detail
