#include <Show/osc/OscStream.h>

#include <cstdint>
#include <cstring>
#include <endian.h>

namespace Show {

namespace {

constexpr std::byte kEnd{0xC0};
constexpr std::byte kEscape{0xDB};
constexpr std::byte kEscapedEnd{0xDC};
constexpr std::byte kEscapedEscape{0xDD};

} // namespace

void OscStream::feed(std::span<const std::byte> bytes) {
    waiting_.erase(waiting_.begin(), waiting_.begin() + static_cast<std::ptrdiff_t>(begin_));
    begin_ = 0;
    waiting_.insert(waiting_.end(), bytes.begin(), bytes.end());
    if (framing_ == Framing::Unknown && !waiting_.empty()) {
        framing_ = waiting_.front() == kEnd ? Framing::Slip : Framing::Sizes;
    }
}

bool OscStream::next(std::span<const std::byte>& packet) {
    if (broken_ || framing_ == Framing::Unknown) {
        return false;
    }
    return framing_ == Framing::Slip ? nextSlip(packet) : nextSized(packet);
}

bool OscStream::nextSized(std::span<const std::byte>& packet) {
    std::uint32_t size = 0;
    if (waiting_.size() - begin_ < sizeof size) {
        return false;
    }
    std::memcpy(&size, waiting_.data() + begin_, sizeof size);
    size = be32toh(size);
    broken_ = size == 0 || size > kMaxBytes;
    if (broken_ || waiting_.size() - begin_ - sizeof size < size) {
        return false;
    }
    packet = {waiting_.data() + begin_ + sizeof size, size};
    begin_ += sizeof size + size;
    return true;
}

std::string OscStream::framed(std::span<const std::byte> packet) const {
    std::string bytes;
    const auto put = [&bytes](std::byte byte) { bytes += static_cast<char>(byte); };
    if (framing_ != Framing::Slip) {
        const std::uint32_t size = htobe32(static_cast<std::uint32_t>(packet.size()));
        bytes.assign(reinterpret_cast<const char*>(&size), sizeof size);
        bytes.append(reinterpret_cast<const char*>(packet.data()), packet.size());
        return bytes;
    }
    put(kEnd);
    for (const std::byte byte : packet) {
        if (byte == kEnd || byte == kEscape) {
            put(kEscape);
        }
        put(byte == kEnd ? kEscapedEnd : byte == kEscape ? kEscapedEscape : byte);
    }
    put(kEnd);
    return bytes;
}

bool OscStream::nextSlip(std::span<const std::byte>& packet) {
    if (given_) {
        packet_.clear();
        given_ = false;
    }
    while (begin_ < waiting_.size()) {
        std::byte byte = waiting_[begin_++];
        if (byte == kEnd && !escaped_) {
            if (!packet_.empty()) {
                given_ = true;
                packet = packet_;
                return true;
            }
            continue;
        }
        if (byte == kEscape && !escaped_) {
            escaped_ = true;
            continue;
        }
        if (escaped_) {
            broken_ = byte != kEscapedEnd && byte != kEscapedEscape;
            byte = byte == kEscapedEnd ? kEnd : kEscape;
            escaped_ = false;
        }
        broken_ = broken_ || packet_.size() == kMaxBytes;
        if (broken_) {
            return false;
        }
        packet_.push_back(byte);
    }
    return false;
}

} // namespace Show
