#pragma once

#include <string>
#include <string_view>

#include <orvel_export.h>

namespace Corvid {

/// Replaces the characters & < > " ' with character references, for use between tags and in quoted
/// attribute values of HTML. Any thread.
[[nodiscard]] ORVEL_EXPORT std::string escapeHtml(std::string_view text);

} // namespace Corvid
