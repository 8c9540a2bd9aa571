#include <Show/capture/CaptureWriter.h>

#include <Show/capture/CaptureFormat.h>

#include <Orvel/CommandEvent.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/statvfs.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace Show {

namespace {

using namespace CaptureFormat;
using Microseconds = std::chrono::microseconds;

constexpr std::size_t kMaxWaiting = std::size_t{256} << 10U;
constexpr std::size_t kFrameLengthBytes = 4;
constexpr std::uint64_t kCheckedBytes = std::uint64_t{64} << 10U; // between two checks of the disk
constexpr std::uint64_t kMinFreePart = 20;                        // of the disk

std::string reason(int error) {
    return std::generic_category().message(error);
}

} // namespace

CaptureWriter::CaptureWriter(
    const std::string& path, const std::string& scenePath, const std::string& sceneText,
    std::uint64_t maxBytes, Report report)
    : path_(path), maxBytes_(maxBytes), report_(std::move(report)),
      descriptor_(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666)) {
    if (descriptor_ < 0) {
        const int error = errno;
        throw OutputError(
            "cannot record to " + path + ": " +
            (error == EEXIST ? "it exists already; give another name, or remove it"
                             : reason(error)));
    }
    waiting_ = kMagic;
    put(waiting_, kVersion);
    put(waiting_, static_cast<std::uint16_t>(Orvel::CommandEvent::kProtocolVersion));
    put(waiting_, static_cast<std::int64_t>(std::chrono::duration_cast<Microseconds>(
                                                std::chrono::system_clock::now().time_since_epoch())
                                                .count()));
    put(waiting_, static_cast<std::uint32_t>(scenePath.size()));
    put(waiting_, static_cast<std::uint32_t>(sceneText.size()));
    waiting_ += scenePath + sceneText;
    put(waiting_, sum(waiting_.data(), waiting_.size()));
    const bool fits = waiting_.size() + kEndMarkBytes <= maxBytes_;
    if (!fits || !diskHasRoom()) {
        close(descriptor_);
        unlink(path_.c_str());
        const std::string start = "cannot record to " + path + ": ";
        if (!fits) {
            throw SizeLimit(start + "the size limit is too small for the scene");
        }
        throw OutputError(start + "the disk is almost full");
    }
    flush();
}

CaptureWriter::~CaptureWriter() {
    flush();
    close(descriptor_);
}

std::uint64_t CaptureWriter::now() const {
    const auto since = std::max(time_.value_or(Clock::now()) - begin_, Clock::duration::zero());
    return static_cast<std::uint64_t>(std::chrono::duration_cast<Microseconds>(since).count());
}

double CaptureWriter::seconds() const {
    return static_cast<double>(ended_ ? last_ : std::max(last_, now())) / 1e6;
}

void CaptureWriter::record(std::uint64_t what, const void* data, std::size_t size) {
    if (ended_) {
        return;
    }
    constexpr std::uint64_t kMaxHeadBytes = 3 * kMaxVarintBytes + kSumBytes;
    if (written_ + waiting_.size() + kMaxHeadBytes + size + kEndMarkBytes > maxBytes_) {
        full_ = true;
        endWithMark("the size limit is reached");
        return;
    }
    const std::uint64_t time = std::max(now(), last_);
    body_.clear();
    putVarint(body_, time - last_);
    putVarint(body_, what);
    body_.append(static_cast<const char*>(data), size);
    last_ = time;
    ++records_;
    const std::size_t begin = waiting_.size();
    putVarint(waiting_, body_.size());
    waiting_ += body_;
    put(waiting_, sum(waiting_.data() + begin, waiting_.size() - begin));
    if (waiting_.size() >= kMaxWaiting) {
        flush();
    }
}

std::uint64_t CaptureWriter::numberOf(const std::string& client) {
    const auto known = clients_.find(client);
    if (known != clients_.end()) {
        return known->second;
    }
    // The lowest free number, which keeps the varints short.
    std::uint64_t number = 1;
    while (std::any_of(clients_.begin(), clients_.end(), [number](const auto& other) {
        return other.second == number;
    })) {
        ++number;
    }
    clients_.emplace(client, number);
    record(number << kKindBits | kClient, client.data(), client.size());
    return number;
}

void CaptureWriter::received(Corvid::Event& event, const std::string& client) {
    if (!event.encode(frame_)) {
        return; // it was received in a frame, so it fits
    }
    const std::uint64_t number = numberOf(client);
    record(
        number << kKindBits | kEvent, frame_.data() + kFrameLengthBytes,
        frame_.size() - kFrameLengthBytes);
    events_ += ended_ ? 0 : 1;
}

void CaptureWriter::lost(const std::string& client) {
    if (const auto entry = clients_.find(client); entry != clients_.end()) {
        record(entry->second << kKindBits | kLost, nullptr, 0);
        clients_.erase(entry);
    }
}

bool CaptureWriter::diskHasRoom() const {
    struct statvfs disk {};
    if (fstatvfs(descriptor_, &disk) != 0 || disk.f_blocks == 0) {
        return true; // writing will report the error
    }
    const std::uint64_t block = disk.f_frsize;
    // Counted after the write, so that the last one before the end, and the end mark, still fit.
    const std::uint64_t limit = std::max(
        std::min(kMinFreeBytes, disk.f_blocks * block / kMinFreePart),
        std::uint64_t{2} * kMaxWaiting);
    return disk.f_bavail * block >= limit + waiting_.size();
}

int CaptureWriter::writeWaiting() {
    int error = 0;
    std::size_t done = 0;
    while (error == 0 && done < waiting_.size()) {
        const ssize_t written = write(descriptor_, waiting_.data() + done, waiting_.size() - done);
        if (written >= 0) {
            done += static_cast<std::size_t>(written);
        } else if (errno != EINTR) {
            error = errno;
        }
    }
    written_ += done;
    waiting_.clear();
    return error;
}

void CaptureWriter::end(const std::string& why) {
    ended_ = true;
    report_(
        "cannot continue recording to " + path_ + ": " + why +
        "; the recording stops here and can be played");
}

void CaptureWriter::endWithMark(const std::string& why) {
    last_ = std::max(last_, now());
    putEndMark();
    writeWaiting(); // the file is playable without the mark
    end(why);
}

void CaptureWriter::putEndMark() {
    const std::size_t begin = waiting_.size();
    put(waiting_, std::uint8_t{0});
    put(waiting_, last_);
    put(waiting_, records_);
    put(waiting_, sum(waiting_.data() + begin, waiting_.size() - begin));
}

void CaptureWriter::flush() {
    unchecked_ += waiting_.size();
    if (unchecked_ >= kCheckedBytes) {
        unchecked_ = 0;
        if (!diskHasRoom()) {
            endWithMark("the disk is almost full");
            return;
        }
    }
    if (const int error = writeWaiting(); error != 0) {
        end(reason(error));
    }
}

bool CaptureWriter::finish() {
    const bool whole = !ended_;
    if (whole) {
        last_ = std::max(last_, now());
        putEndMark();
        flush();
    }
    const bool stored = fsync(descriptor_) == 0 || errno == EINVAL; // EINVAL: not a regular file
    return whole && !ended_ && stored;
}

} // namespace Show
