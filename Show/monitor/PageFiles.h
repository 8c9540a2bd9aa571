#pragma once

#include <string_view>

namespace Show {

/// The files of page/, embedded by the build.
extern const std::string_view kMonitorHtml;
extern const std::string_view kMonitorCss;
extern const std::string_view kMonitorJs;

} // namespace Show
