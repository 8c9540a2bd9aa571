#include <Show/capture/CaptureReader.h>

#include <Show/capture/CaptureFormat.h>

#include <Corvid/Event.h>
#include <Orvel/CommandEvent.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <utility>

namespace Show {

namespace {

using namespace CaptureFormat;

constexpr std::size_t kReadSize = std::size_t{256} << 10U;
constexpr std::uint64_t kMaxTime = std::uint64_t{1} << 50U; // 35 years
constexpr std::size_t kMaxBodyBytes = Corvid::Event::kMaxFrameBytes + 2 * kMaxVarintBytes;

} // namespace

bool CaptureReader::isCapture(const std::string& path) {
    std::error_code ignored;
    if (!std::filesystem::is_regular_file(path, ignored)) {
        return false; // reading a pipe would consume its data
    }
    const File file(std::fopen(path.c_str(), "rbe"));
    std::string beginning(kMagic.size(), '\0');
    return file != nullptr &&
           std::fread(beginning.data(), 1, beginning.size(), file.get()) == beginning.size() &&
           beginning == kMagic;
}

std::unique_ptr<CaptureReader> CaptureReader::open(const std::string& path, std::string& fault) {
    File file(std::fopen(path.c_str(), "rbe"));
    struct stat status {};
    if (file == nullptr || fstat(fileno(file.get()), &status) != 0) {
        fault = "cannot be read: " + std::generic_category().message(errno);
        return nullptr;
    }
    std::setvbuf(file.get(), nullptr, _IONBF, 0); // this class has a buffer of its own
    std::unique_ptr<CaptureReader> reader(
        new CaptureReader(std::move(file), static_cast<std::uint64_t>(status.st_size)));
    if (!reader->readHeader(fault)) {
        return nullptr;
    }
    reader->readEndMark();
    reader->rewind();
    return reader;
}

bool CaptureReader::readHeader(std::string& fault) {
    const auto fixed = peek(kFixedHeaderBytes);
    const bool whole = fixed.size() == kFixedHeaderBytes;
    const auto version = whole ? get<std::uint16_t>(fixed, 8) : kVersion;
    if (version != kVersion) {
        fault = "is a capture of version " + std::to_string(version) +
                "; this program reads version " + std::to_string(kVersion) +
                "; use the version of orvel that recorded it";
        return false;
    }
    const auto protocol = whole ? get<std::uint16_t>(fixed, 10) : 0;
    const std::uint64_t path = whole ? get<std::uint32_t>(fixed, 20) : 0;
    const std::uint64_t text = whole ? get<std::uint32_t>(fixed, 24) : 0;
    const std::uint64_t size = kFixedHeaderBytes + path + text;
    const auto all =
        whole && size + kSumBytes <= size_ ? peek(size + kSumBytes) : std::span<const std::byte>();
    if (all.size() != size + kSumBytes || get<std::uint32_t>(all, size) != sum(all.data(), size)) {
        fault = "is a capture with a damaged or truncated header, and cannot be played";
        return false;
    }
    if (protocol != Orvel::CommandEvent::kProtocolVersion) {
        fault = "is a capture of version " + std::to_string(protocol) +
                " of the protocol; this program supports version " +
                std::to_string(Orvel::CommandEvent::kProtocolVersion) +
                "; use the version of orvel that recorded it";
        return false;
    }
    const auto* texts = reinterpret_cast<const char*>(all.data()) + kFixedHeaderBytes;
    scenePath_.assign(texts, path);
    sceneText_.assign(texts + path, text);
    first_ = size + kSumBytes;
    return true;
}

void CaptureReader::readEndMark() {
    std::byte mark[kEndMarkBytes];
    if (size_ < first_ + kEndMarkBytes ||
        std::fseek(file_.get(), -static_cast<long>(kEndMarkBytes), SEEK_END) != 0 ||
        std::fread(mark, 1, kEndMarkBytes, file_.get()) != kEndMarkBytes) {
        return;
    }
    constexpr std::size_t kSummed = kEndMarkBytes - kSumBytes;
    if (mark[0] == std::byte{0} && get<std::uint32_t>(mark, kSummed) == sum(mark, kSummed)) {
        length_ = get<std::uint64_t>(mark, 1);
    }
}

void CaptureReader::rewind() {
    std::fseek(file_.get(), static_cast<long>(first_), SEEK_SET);
    begin_ = end_ = given_ = 0;
    offset_ = first_;
    time_ = 0;
    damaged_ = false;
}

std::span<const std::byte> CaptureReader::peek(std::size_t count) {
    if (end_ - begin_ < count) {
        std::copy(
            buffer_.begin() + static_cast<std::ptrdiff_t>(begin_),
            buffer_.begin() + static_cast<std::ptrdiff_t>(end_), buffer_.begin());
        end_ -= begin_;
        begin_ = 0;
        buffer_.resize(std::max({buffer_.size(), kReadSize, count}));
        end_ += std::fread(buffer_.data() + end_, 1, buffer_.size() - end_, file_.get());
    }
    return {buffer_.data() + begin_, std::min(count, end_ - begin_)};
}

void CaptureReader::skip(std::size_t count) {
    begin_ += count;
    offset_ += count;
}

bool CaptureReader::next(Record& record) {
    skip(std::exchange(given_, 0));
    for (;;) {
        std::span<const std::byte> rest = peek(kMaxVarintBytes);
        const std::size_t there = rest.size();
        std::uint64_t size = 0;
        damaged_ = !takeVarint(rest, size);
        if (damaged_ || size == 0) { // size 0 is the end mark
            damaged_ = damaged_ || !length_ || offset_ + kEndMarkBytes != size_;
            return false;
        }
        const std::size_t head = there - rest.size();
        damaged_ = true;
        if (size > kMaxBodyBytes || size > size_ - std::min(size_, offset_)) {
            return false;
        }
        const std::size_t summed = head + size;
        const auto all = peek(summed + kSumBytes);
        if (all.size() != summed + kSumBytes ||
            get<std::uint32_t>(all, summed) != sum(all.data(), summed)) {
            return false;
        }
        std::span<const std::byte> body = all.subspan(head, size);
        std::uint64_t passed = 0;
        std::uint64_t what = 0;
        if (!takeVarint(body, passed) || !takeVarint(body, what) || passed > kMaxTime - time_) {
            return false;
        }
        damaged_ = false;
        time_ += passed;
        given_ = all.size();
        const std::uint64_t kind = what & ((1U << kKindBits) - 1);
        if (kind <= kLost) {
            record = {
                time_, what >> kKindBits,
                kind == kEvent    ? Kind::Event
                : kind == kClient ? Kind::Client
                                  : Kind::Lost,
                body};
            return true;
        }
        skip(std::exchange(given_, 0)); // a kind of a later version
    }
}

} // namespace Show
