#include <Show/osc/OscInbox.h>

#include <algorithm>
#include <cstring>
#include <endian.h>
#include <iterator>

namespace Show {

namespace {

constexpr char kBundle[] = "#bundle"; // and a terminating zero
constexpr std::size_t kBundleHeader = sizeof kBundle + 8;
constexpr std::int64_t kSecondsTo1970 = 2'208'988'800; // from 1900, where time tags begin

template <class Value>
Value read(std::span<const std::byte> bytes) {
    Value value{};
    std::memcpy(&value, bytes.data(), sizeof value);
    return value;
}

bool isBundle(std::span<const std::byte> packet) {
    return packet.size() >= sizeof kBundle &&
           std::memcmp(packet.data(), kBundle, sizeof kBundle) == 0;
}

/// A time tag: seconds since 1900 and a fraction, 32 bits each. 1 stands for "at once".
OscInbox::Clock::time_point timeOf(std::uint64_t tag) {
    if (tag <= 1) {
        return {};
    }
    const auto seconds = static_cast<std::int64_t>(tag >> 32U) - kSecondsTo1970;
    const std::uint64_t micros = ((tag & 0xffffffffU) * 1'000'000U) >> 32U;
    return OscInbox::Clock::time_point(
        std::chrono::seconds(seconds) + std::chrono::microseconds(micros));
}

} // namespace

OscInbox::OscInbox(Take take, Report report) : take_(std::move(take)), report_(std::move(report)) {}

void OscInbox::add(
    std::span<const std::byte> packet, Clock::time_point now, const Stop& stop,
    const OscPeer& peer) {
    const bool inTime = advance(now, stop);
    // After everything that was left for later.
    const auto after = waiting_.upper_bound({now, UINT64_MAX});
    const auto least =
        after == waiting_.begin() ? Clock::time_point() : std::prev(after)->first.first;
    if (isBundle(packet)) {
        addBundle(packet, least, 1, now, peer);
        advance(now, stop);
    } else if (inTime) {
        take_(packet, peer);
    } else {
        addMessage(packet, least, peer);
    }
}

void OscInbox::addMessage(
    std::span<const std::byte> message, Clock::time_point time, const OscPeer& peer) {
    waiting_.emplace(std::pair(time, count_++), Message{{message.begin(), message.end()}, peer});
    bytes_ += message.size();
}

void OscInbox::addBundle(
    std::span<const std::byte> bundle, Clock::time_point least, int depth, Clock::time_point now,
    const OscPeer& peer) {
    if (bundle.size() < kBundleHeader || depth > kMaxDepth) {
        report_(depth > kMaxDepth ? "too many nested bundles" : "a truncated bundle", peer);
        return;
    }
    // A nested bundle is not due before the outer one.
    const Clock::time_point time =
        std::max(least, timeOf(be64toh(read<std::uint64_t>(bundle.subspan(sizeof kBundle)))));
    for (auto rest = bundle.subspan(kBundleHeader); !rest.empty();) {
        const std::size_t size =
            rest.size() < 4 ? rest.size() : std::size_t{be32toh(read<std::uint32_t>(rest))};
        if (rest.size() < 4 || size == 0 || size > rest.size() - 4) {
            report_("a truncated bundle", peer);
            return;
        }
        const auto element = rest.subspan(4, size);
        rest = rest.subspan(4 + size);
        if (isBundle(element)) {
            addBundle(element, time, depth + 1, now, peer);
        } else if (time > now && (waiting_.size() >= kMaxMessages || bytes_ + size > kMaxBytes)) {
            report_("a message for later, although too many are waiting", peer);
        } else {
            // Due messages are queued too, to keep the order within the bundle's time.
            addMessage(element, time, peer);
        }
    }
}

bool OscInbox::advance(Clock::time_point now, const Stop& stop) {
    while (!waiting_.empty() && waiting_.begin()->first.first <= now) {
        if (stop && stop()) {
            return false;
        }
        const auto message = waiting_.extract(waiting_.begin());
        bytes_ -= message.mapped().bytes.size();
        take_(message.mapped().bytes, message.mapped().peer);
    }
    return true;
}

std::optional<OscInbox::Clock::time_point> OscInbox::next() const {
    return waiting_.empty() ? std::nullopt : std::optional(waiting_.begin()->first.first);
}

} // namespace Show
