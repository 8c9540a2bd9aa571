#include "process/ShortPeriods.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace OrvelTool {

ShortPeriods::ShortPeriods() {
    std::error_code error;
    folder_ = (std::filesystem::temp_directory_path(error) / "orvel-XXXXXX").string();
    if (mkdtemp(folder_.data()) == nullptr) {
        folder_.clear();
        return;
    }
    std::ofstream(folder_ + "/alsoft.conf") << "[general]\nperiod_size = 128\nperiods = 16\n";
    // The last folder has the lowest priority, so all settings of the user take precedence.
    const char* folders = std::getenv("XDG_CONFIG_DIRS"); // NOLINT(concurrency-mt-unsafe)
    const std::string all = folders == nullptr || *folders == '\0' ? "/etc/xdg" : folders;
    setenv("XDG_CONFIG_DIRS", (all + ":" + folder_).c_str(), 1); // NOLINT(concurrency-mt-unsafe)
}

ShortPeriods::~ShortPeriods() {
    if (!folder_.empty()) {
        std::error_code error;
        std::filesystem::remove_all(folder_, error);
    }
}

} // namespace OrvelTool
