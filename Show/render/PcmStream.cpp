#include <Show/render/PcmStream.h>

#include <Show/detail/OutputFile.h>
#include <Show/render/WavWriter.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace Show {

namespace {

OutputError cannotStream(const std::string& path) {
    return OutputError(
        "cannot write " + nameOfOutput(path) + ": " + std::generic_category().message(errno));
}

} // namespace

static_assert(std::endian::native == std::endian::little);

bool PcmStream::isStream(const std::string& path) {
    struct stat status {};
    return isStandardOutput(path) || (stat(path.c_str(), &status) == 0 && S_ISFIFO(status.st_mode));
}

PcmStream::PcmStream(const std::string& path, unsigned rate, unsigned channels, std::string header)
    : path_(path), header_(std::move(header)), frameBytes_(channels * sizeof(std::int16_t)),
      maxQueued_(static_cast<std::size_t>(kMaxQueued * rate) * frameBytes_),
      fifo_(!isStandardOutput(path)) {
    if (fifo_) {
        openFifo();
    } else {
        descriptor_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
    }
    if (descriptor_ < 0) {
        throw cannotStream(path);
    }
}

PcmStream::~PcmStream() {
    if (descriptor_ >= 0) {
        close(descriptor_);
    }
}

void PcmStream::openFifo() {
    // Without a reader it can be opened for writing only while it is open for reading, too. It
    // stays open, so that a reader waits for sound instead of finding the end.
    const int both = open(path_.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    descriptor_ = open(path_.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (both >= 0) {
        close(both);
    }
}

bool PcmStream::findReader() {
    if (over_) {
        return false;
    }
    if (descriptor_ < 0) {
        openFifo(); // it has failed before
    }
    pollfd state{descriptor_, POLLOUT, 0};
    if (descriptor_ < 0 || poll(&state, 1, 0) < 0 || (state.revents & POLLERR) != 0) {
        loseReader();
        return false;
    }
    if (!std::exchange(reading_, true)) {
        const auto header = std::as_bytes(std::span(header_));
        queue_.assign(header.begin(), header.end());
        written_ = 0;
    }
    return true;
}

void PcmStream::loseReader() {
    queue_.clear();
    written_ = 0;
    if (!fifo_) {
        over_ = true;
    } else if (std::exchange(reading_, false)) {
        close(std::exchange(descriptor_, -1)); // with what the reader has left in the pipe
        openFifo();
    }
}

void PcmStream::push() {
    while (written_ < queue_.size()) {
        // A pipe that is ready takes this much without blocking. Standard output is not made
        // non-blocking, because other programs share it.
        const std::size_t count = std::min<std::size_t>(queue_.size() - written_, PIPE_BUF);
        pollfd ready{descriptor_, POLLOUT, 0};
        if (poll(&ready, 1, 0) <= 0) {
            break;
        }
        const ssize_t done = ::write(descriptor_, queue_.data() + written_, count);
        if (done > 0) {
            written_ += static_cast<std::size_t>(done);
        } else if (errno == EAGAIN || errno == EINTR) {
            break;
        } else {
            loseReader();
        }
    }
    if (written_ == queue_.size()) {
        queue_.clear();
        written_ = 0;
    }
}

void PcmStream::write(std::span<const float> samples) {
    clipped_ += toIntegers(samples, integers_);
    if (!findReader()) {
        return;
    }
    push();
    if (!reading_ || over_) {
        return; // it has gone meanwhile
    }
    const auto bytes = std::as_bytes(std::span(integers_));
    if (queue_.size() - written_ + bytes.size() > maxQueued_) {
        missed_ += bytes.size() / frameBytes_;
        return;
    }
    queue_.erase(queue_.begin(), queue_.begin() + static_cast<std::ptrdiff_t>(written_));
    written_ = 0;
    queue_.insert(queue_.end(), bytes.begin(), bytes.end());
    push();
}

void PcmStream::finish(std::chrono::milliseconds most) {
    const auto deadline = Clock::now() + most;
    for (push(); !queue_.empty() && Clock::now() < deadline; push()) {
        pollfd ready{descriptor_, POLLOUT, 0};
        poll(&ready, 1, 10);
    }
    missed_ += (queue_.size() - written_) / frameBytes_;
}

} // namespace Show
