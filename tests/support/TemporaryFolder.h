#pragma once

#include <filesystem>
#include <stdexcept>
#include <stdlib.h>
#include <string>

namespace Orvel::Test {

/// A new empty folder that is removed with its contents by the destructor.
class TemporaryFolder {
public:
    TemporaryFolder() : path_((std::filesystem::temp_directory_path() / "orvel-XXXXXX").string()) {
        if (mkdtemp(path_.data()) == nullptr) {
            throw std::runtime_error("TemporaryFolder: cannot make " + path_);
        }
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    [[nodiscard]] const std::string& path() const noexcept { return path_; }
    [[nodiscard]] std::string file(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

} // namespace Orvel::Test
