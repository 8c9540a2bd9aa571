#pragma once

#include <span>
#include <string_view>

namespace Show {

/// A file of page/.
struct PageFile {
    std::string_view name; ///< such as "monitor.js"
    std::string_view content;
};

/// The files of page/, embedded by the build.
extern const std::span<const PageFile> kPageFiles;

} // namespace Show
