#include <Show/detail/OutputFile.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace Show {

namespace {

OutputError cannotWrite(const std::string& path, int error) {
    return OutputError("cannot write " + path + ": " + std::generic_category().message(error));
}

} // namespace

bool isStandardOutput(const std::string& path) {
    return path == "-";
}

std::string nameOfOutput(const std::string& path) {
    return isStandardOutput(path) ? "standard output" : path;
}

OutputFile::OutputFile(const std::string& path, Unfinished unfinished)
    : path_(nameOfOutput(path)), unfinished_(unfinished) {
    if (isStandardOutput(path)) {
        stream_ = true;
        descriptor_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
        if (descriptor_ < 0) {
            throw cannotWrite(path_, errno);
        }
        return;
    }
    struct stat status {};
    const bool exists = stat(path_.c_str(), &status) == 0;
    if (exists && S_ISDIR(status.st_mode)) {
        throw cannotWrite(path_, EISDIR);
    }
    if (exists && !S_ISREG(status.st_mode)) {
        stream_ = true;
        descriptor_ = open(path_.c_str(), O_RDWR | O_CLOEXEC);
        if (descriptor_ < 0) {
            throw cannotWrite(path_, errno);
        }
        return;
    }
    if (exists && access(path_.c_str(), W_OK) != 0) {
        throw cannotWrite(path_, errno);
    }
    if (!exists && unfinished_ == Unfinished::Kept) {
        descriptor_ = open(path_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (descriptor_ >= 0) {
            return;
        }
    }
    temporary_ = path_ + ".XXXXXX";
    descriptor_ = mkostemp(temporary_.data(), O_CLOEXEC);
    if (descriptor_ < 0) {
        temporary_.clear();
        throw cannotWrite(path_, errno);
    }
    // mkostemp makes the file private; give it the usual mode of a new file.
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(descriptor_, exists ? status.st_mode & 07777 : 0666 & ~mask);
}

OutputFile::~OutputFile() {
    if (descriptor_ >= 0) {
        close(descriptor_);
    }
    if (unfinished_ == Unfinished::Removed) {
        removeTemporary();
    } else if (!temporary_.empty()) {
        std::rename(temporary_.c_str(), path_.c_str());
    }
}

void OutputFile::write(const std::string& text) {
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t written = ::write(descriptor_, text.data() + done, text.size() - done);
        if (written >= 0) {
            done += static_cast<std::size_t>(written);
        } else if (errno != EINTR) {
            throw cannotWrite(path_, errno);
        }
    }
}

void OutputFile::keep() {
    const int descriptor = descriptor_;
    descriptor_ = -1;
    // Some file systems report a full disk only on close.
    if (close(descriptor) != 0) {
        throw cannotWrite(path_, errno);
    }
    if (!temporary_.empty() && std::rename(temporary_.c_str(), path_.c_str()) != 0) {
        throw cannotWrite(path_, errno);
    }
    temporary_.clear();
}

void OutputFile::removeTemporary() noexcept {
    if (!temporary_.empty()) {
        unlink(temporary_.c_str());
    }
}

} // namespace Show
