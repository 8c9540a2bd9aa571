#pragma once

#include <orvel_export.h>

namespace Orvel {

/// The version of the library that is loaded, such as "0.1.0". Any thread.
ORVEL_EXPORT const char* version() noexcept;

} // namespace Orvel
