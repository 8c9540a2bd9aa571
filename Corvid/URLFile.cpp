#include <Corvid/URLFile.h>

#include <Corvid/detail/url/PercentEncode.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace Corvid {

namespace {

bool isControlByte(unsigned char c) {
    return c < 0x20 || c == 0x7f;
}

std::string currentDirectory() {
    std::error_code error;
    const std::string path = std::filesystem::current_path(error).string();
    if (error) {
        throw URLImpl::Exception(
            "Cannot determine the current directory: " + error.message() +
            "; change to another one");
    }
    if (std::any_of(path.begin(), path.end(), isControlByte)) {
        throw URLImpl::Exception(
            "The current directory has control characters in its name; change to another one");
    }
    // The slash marks a directory: names are resolved below it, not beside it.
    return path.ends_with('/') ? path : path + '/';
}

std::string absolutePath(const std::string& path) {
    if (path.empty() || std::any_of(path.begin(), path.end(), isControlByte)) {
        throw URLImpl::Exception("Cannot parse URL");
    }
    return std::filesystem::path(path.front() == '/' ? path : currentDirectory() + path)
        .lexically_normal()
        .string();
}

/// The reason why the file cannot be read, or an empty text.
std::string whyUnreadable(const std::string& path) {
    struct stat status = {};
    if (::stat(path.c_str(), &status) != 0) {
        return std::generic_category().message(errno);
    }
    if (S_ISDIR(status.st_mode)) {
        return "It is a directory; name a file";
    }
    if (!S_ISREG(status.st_mode)) {
        return "It is a device, pipe or socket; name a regular file";
    }
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0) {
        return std::generic_category().message(errno);
    }
    ::close(descriptor);
    return {};
}

} // namespace

URLFile::URLFile() : URLFile(currentDirectory()) {}

URLFile::URLFile(const std::string& path) : URLFile(Absolute{absolutePath(path)}) {}

URLFile::URLFile(Absolute absolute)
    : URLImpl("file://" + detail::percentEncode(absolute.path)), path_(std::move(absolute.path)) {}

std::unique_ptr<URLImpl::File> URLFile::fetch() const {
    // A reader that opens the file by name would block forever on a pipe, and report a directory as
    // a file without sound.
    if (const std::string reason = whyUnreadable(path_); !reason.empty()) {
        throw Exception("Cannot read the file \"" + path_ + "\": " + reason);
    }
    return std::make_unique<File>(path_, false);
}

} // namespace Corvid
