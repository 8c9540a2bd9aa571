#pragma once

#include <orvel_export.h>

namespace Orvel {

/// The version of the library that is loaded, such as "0.1.0". Any thread.
ORVEL_EXPORT const char* version() noexcept;

/// When the library was built, in UTC, such as "Apr  2 2015 02:13:07". Any thread.
ORVEL_EXPORT const char* buildDate() noexcept;

} // namespace Orvel
