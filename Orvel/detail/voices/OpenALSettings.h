#pragma once

#include <Orvel/OutputLayout.h>

#include <optional>
#include <string>

namespace Orvel::detail {

/// Asks OpenAL Soft for a sound device with a latency and a layout of loudspeakers. OpenAL Soft has
/// no calls for that: it takes both from its settings, which it reads when it is first used in a
/// process. This adds to these settings, behind those of the user, by means of a temporary file and
/// the environment variable ALSOFT_CONF, and undoes that at the end.
///
/// Create it before a thread that uses OpenAL, and keep it until a device has been opened.
/// Confined.
class OpenALSettings {
public:
    /// The device's period for a latency in milliseconds, in frames.
    static unsigned periodFor(unsigned latency, unsigned rate);

    /// A latency of 0 milliseconds and a null layout are not asked for. Without a temporary file it
    /// has no effect.
    OpenALSettings(unsigned latency, unsigned rate, const OutputLayout* layout);
    OpenALSettings(const OpenALSettings&) = delete;
    OpenALSettings& operator=(const OpenALSettings&) = delete;
    ~OpenALSettings();

private:
    std::string path_; // empty without a file
    std::optional<std::string> former_;
};

} // namespace Orvel::detail
