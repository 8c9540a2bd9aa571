#pragma once

#include <string>
#include <string_view>

#include <orvel_export.h>

namespace Corvid {

/// The text with the characters & < > " ' written as character references, so that it stands for
/// itself between tags and in quoted attribute values of HTML. Any thread.
[[nodiscard]] ORVEL_EXPORT std::string escapeHtml(std::string_view text);

} // namespace Corvid
