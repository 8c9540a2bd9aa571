#include "commands/OutputGuard.h"

#include "process/Output.h"
#include <Show/detail/OutputFile.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace OrvelTool {

namespace {

namespace fs = std::filesystem;

/// Whether two paths name the same file. Files that do not exist yet are compared by path.
bool isSame(const std::string& one, const std::string& other) {
    struct stat a {};
    struct stat b {};
    const bool oneExists = stat(one.c_str(), &a) == 0;
    const bool otherExists = stat(other.c_str(), &b) == 0;
    if (oneExists || otherExists) {
        return oneExists && otherExists && S_ISREG(a.st_mode) && a.st_dev == b.st_dev &&
               a.st_ino == b.st_ino;
    }
    std::error_code error;
    return fs::weakly_canonical(fs::absolute(one, error), error) ==
           fs::weakly_canonical(fs::absolute(other, error), error);
}

/// Whether the path is, or would become, a regular file.
bool isFile(const std::string& path) {
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    return !fs::exists(status) || fs::is_regular_file(status);
}

bool hasSuffix(const std::string& path, const OutputGuard::Format& format) {
    std::string suffix = fs::path(path).extension().string();
    std::transform(suffix.begin(), suffix.end(), suffix.begin(), [](unsigned char character) {
        return static_cast<char>(std::tolower(character));
    });
    return suffix.empty() ||
           std::any_of(format.suffixes.begin(), format.suffixes.end(), [&](const char* known) {
               return suffix == known;
           });
}

} // namespace

const OutputGuard::Format OutputGuard::kSound{"WAV files", {".wav", ".wave"}};
const OutputGuard::Format OutputGuard::kPicture{"SVG pictures", {".svg"}, true};
const OutputGuard::Format OutputGuard::kCapture{"captures", {".orvelrec"}};

void OutputGuard::reads(const std::string& path, const std::string& role) {
    inputs_.push_back({path, role});
}

void OutputGuard::readsSounds(const Show::ShowFile& file) {
    for (const std::string& path : file.soundFiles()) {
        reads(path, "a sound of the scene");
    }
}

bool OutputGuard::accept(const std::string& path, const Format& format) {
    const auto refuse = [](const std::string& why) {
        report(why);
        return false;
    };
    const bool twice = std::any_of(outputs_.begin(), outputs_.end(), [&](const auto& other) {
        return isSame(other, path) || (other == path && Show::isStandardOutput(path));
    });
    if (twice) {
        return refuse(Show::nameOfOutput(path) + " would be written twice; give two names");
    }
    outputs_.push_back(path);
    if (Show::isStandardOutput(path)) {
        return format.text || isatty(STDOUT_FILENO) != 1 ||
               refuse(
                   std::string("a terminal cannot display ") + format.name +
                   "; redirect standard output to a program or a file");
    }
    if (!isFile(path)) {
        return true;
    }
    for (const File& input : inputs_) {
        if (isSame(input.path, path)) {
            return refuse(
                path + " is " + input.role + " and would be lost; give the output another name");
        }
    }
    return hasSuffix(path, format) || refuse(
                                          "cannot write " + path + ": only " + format.name + " (" +
                                          format.suffixes.front() + ") are written");
}

} // namespace OrvelTool
