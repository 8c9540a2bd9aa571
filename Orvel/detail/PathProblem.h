#pragma once

#include <filesystem>
#include <string>
#include <system_error>

namespace Orvel::detail {

/// The reason why a path is not a regular file, such as " is a folder", to follow the path in a
/// message; empty if it is one. Opening a pipe would wait for its writer.
inline std::string pathProblem(const std::string& path) {
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(path, error);
    if (!std::filesystem::exists(status)) {
        return error && status.type() == std::filesystem::file_type::none
                   ? " cannot be reached: " + error.message()
                   : " does not exist";
    }
    if (std::filesystem::is_directory(status)) {
        return " is a folder";
    }
    return std::filesystem::is_regular_file(status) ? "" : " is not a regular file";
}

} // namespace Orvel::detail
