#pragma once

#include <orvel_export.h>

namespace Orvel {

/// The version of the loaded library, such as "0.1.0". Any thread.
ORVEL_EXPORT const char* version() noexcept;

/// The build date of the library in UTC, such as "Apr 2 2015 02:13:07". Any thread.
ORVEL_EXPORT const char* buildDate() noexcept;

} // namespace Orvel
