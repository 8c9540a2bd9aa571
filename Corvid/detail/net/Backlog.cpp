#include <Corvid/detail/net/Backlog.h>

#include <Corvid/detail/net/Wire.h>

#include <algorithm>
#include <cstring>

namespace Corvid::detail {

namespace {

constexpr std::size_t kMinForgotten = std::size_t{64} << 10U; // moving the rest is worth it
constexpr std::size_t kMaxKeptEmpty = std::size_t{1} << 20U;
constexpr std::size_t kBytesPerSubject = 64; // about as much as the map takes

} // namespace

void Backlog::add(const Classify& classify, std::span<const std::byte> bytes) {
    if (rest_ > 0) {
        const auto rest = bytes.first(std::min<std::size_t>(rest_, bytes.size()));
        bytes_.insert(bytes_.end(), rest.begin(), rest.end());
        bytes = bytes.subspan(rest.size());
        rest_ -= rest.size();
        next_ = end();
    }
    while (!bytes.empty()) {
        const auto whole = frameSize(bytes);
        if (part_.empty() && whole && *whole <= bytes.size()) {
            addFrame(classify, bytes.first(*whole));
            bytes = bytes.subspan(*whole);
            continue;
        }
        const std::size_t size = frameSize(part_).value_or(kFrameHeaderBytes);
        const std::size_t more = std::min(size - part_.size(), bytes.size());
        part_.insert(part_.end(), bytes.begin(), bytes.begin() + static_cast<long>(more));
        bytes = bytes.subspan(more);
        if (frameSize(part_) == part_.size()) {
            addFrame(classify, part_);
            part_.clear();
        }
    }
}

std::span<std::byte> Backlog::frameAt(std::uint64_t position) {
    const auto rest = std::span(bytes_).subspan(position - begin_);
    return rest.first(*frameSize(rest));
}

void Backlog::addFrame(const Classify& classify, std::span<const std::byte> frame) {
    const FrameRole role = classify(frame);
    switch (role.kind) {
    case FrameRole::Kind::Value: {
        std::uint64_t& newest = newest_[role.subject].at(role.slot);
        if (newest >= next_) {
            if (const auto older = frameAt(newest); older.size() == frame.size()) {
                std::memcpy(older.data(), frame.data(), frame.size());
                ++leftOut_;
                return;
            }
        }
        newest = end();
        break;
    }
    case FrameRole::Kind::Event:
        newest_.erase(role.subject);
        break;
    case FrameRole::Kind::Barrier:
        newest_.clear();
        break;
    case FrameRole::Kind::Reset:
        reset(classify);
        break;
    case FrameRole::Kind::LeftOut:
        ++leftOut_;
        return;
    }
    bytes_.insert(bytes_.end(), frame.begin(), frame.end());
}

/// Drops all queued frames except those about the whole, and barriers.
void Backlog::reset(const Classify& classify) {
    newest_.clear();
    std::uint64_t to = next_;
    for (std::uint64_t from = next_; from < end();) {
        const auto frame = frameAt(from);
        const FrameRole role = classify(frame);
        from += frame.size();
        if (role.kind == FrameRole::Kind::Barrier ||
            (role.kind != FrameRole::Kind::Reset && role.subject == 0)) {
            std::memmove(bytes_.data() + (to - begin_), frame.data(), frame.size());
            to += frame.size();
        } else {
            ++leftOut_;
        }
    }
    bytes_.resize(to - begin_);
    replayEnd_ = std::min(replayEnd_, next_);
}

void Backlog::advance(std::size_t size) {
    sent_ += size;
    while (next_ < begin_ + sent_) {
        next_ += frameAt(next_).size();
    }
    if (!empty() && (sent_ < kMinForgotten || sent_ < bytes_.size() / 2)) {
        return;
    }
    bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<long>(sent_));
    begin_ += sent_;
    sent_ = 0;
    if (bytes_.empty()) {
        newest_.clear();
        if (bytes_.capacity() > kMaxKeptEmpty) {
            bytes_.shrink_to_fit();
        }
    }
}

Backlog::Counts Backlog::counts() const {
    Counts counts;
    counts.waiting = bytes_.size() - sent_;
    counts.lag = end() - std::max(begin_ + sent_, std::min(replayEnd_, end()));
    counts.kept = bytes_.capacity() + newest_.size() * kBytesPerSubject;
    counts.leftOut = leftOut_;
    return counts;
}

} // namespace Corvid::detail
