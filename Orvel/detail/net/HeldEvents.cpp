#include <Orvel/detail/net/HeldEvents.h>

#include <Orvel/CheckEvent.h>
#include <Orvel/EmitterHullEvent.h>
#include <Orvel/EmitterParamEvent.h>
#include <Orvel/SourceParamEvent.h>
#include <Orvel/TransformEvent.h>
#include <Orvel/detail/net/SceneTime.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace Orvel::detail {

namespace {

using namespace std::chrono_literals;

constexpr std::chrono::nanoseconds kMaxLatency = 10s;
/// 146 years. Computing with a time and the offset of a clock cannot overflow then.
constexpr std::int64_t kMaxTime = std::int64_t{1} << 62U;
/// When the clock is known well: so many measurements, and a deviation of so many seconds.
constexpr std::uint64_t kEnough = 12;
constexpr double kWellKnown = 20e-6;
constexpr auto kLookAgain = 10ms;

/// Whether a frame only sets a value of a part, or checks some.
bool isValue(std::span<const std::byte> frame) {
    constexpr std::size_t kType = 4;
    short type = 0;
    std::memcpy(&type, frame.data() + kType, sizeof type);
    return type == TransformEvent::_type.typeId() || type == EmitterHullEvent::_type.typeId() ||
           type == EmitterParamEvent::_type.typeId() || type == SourceParamEvent::_type.typeId() ||
           type == CheckEvent::_type.typeId();
}

} // namespace

HeldEvents::HeldEvents(const ClockEvent& offer, Clock::time_point now)
    : offered_(now), system_(offer.system),
      latency_(std::chrono::nanoseconds(
          static_cast<std::int64_t>(std::min<unsigned long>(offer.latency, kMaxLatency.count())))),
      changed_(now) {}

void HeldEvents::beginBatch(std::int64_t time, Clock::time_point arrived) {
    latest_ = Batch{std::clamp(time, -kMaxTime, kMaxTime), arrived, 0, {}};
    isNew_ = true;
}

bool HeldEvents::hold(std::span<const std::byte> frame) {
    if (!latest_) {
        return false;
    }
    // The rest of a batch whose begin has been applied already is a batch of its own.
    if (std::exchange(isNew_, false) || batches_.empty()) {
        batches_.push_back(*latest_);
        held_ += sizeof(Batch);
    }
    const std::uint64_t number = removed_ + batches_.size() - 1;
    if (!isValue(frame) && (starts_.empty() || starts_.back() != number)) {
        starts_.push_back(number);
    }
    auto& bytes = batches_.back().bytes;
    bytes.insert(bytes.end(), frame.begin(), frame.end());
    held_ += frame.size();
    return true;
}

bool HeldEvents::becomesReady(const Corvid::PeerClock& clock, Clock::time_point now) {
    const bool ready = system_ || now >= offered_ + kTimeToKnow ||
                       (clock.samples >= kEnough && clock.deviation < kWellKnown);
    return ready && !std::exchange(ready_, true);
}

std::optional<HeldEvents::Clock::time_point>
HeldEvents::nextDue(const Corvid::PeerClock& clock, Clock::duration delay) const {
    if (batches_.empty()) {
        return std::nullopt;
    }
    if (!ready_) {
        return Clock::now() + kLookAgain;
    }
    return dueOf(batches_.front(), clock, delay);
}

std::optional<HeldEvents::Clock::time_point> HeldEvents::nextTaken(
    const Corvid::PeerClock& clock, Clock::duration delay, const Lead& lead) const {
    auto next = nextDue(clock, delay);
    if (next && ready_) {
        *next -= lead.value;
        if (!starts_.empty()) { // order is kept, so a start takes the values before it along
            const Batch& start = batches_[starts_.front() - removed_];
            next = std::min(*next, dueOf(start, clock, delay) - lead.start);
        }
    }
    return next;
}

HeldEvents::Clock::time_point
HeldEvents::dueOf(const Batch& batch, const Corvid::PeerClock& clock, Clock::duration delay) const {
    if (held_ > kMaxBytes || (!system_ && !clock.known)) {
        return batch.arrived;
    }
    const std::int64_t own = system_ ? batch.time + nanosecondsNow(false) - nanosecondsNow(true)
                                     : clock.ownTime(batch.time);
    const Clock::duration hold = latency_ + delay;
    return std::min(
        Clock::time_point(std::chrono::nanoseconds(own)) + hold, batch.arrived + hold + kMaxExcess);
}

std::span<const std::byte> HeldEvents::take() {
    Batch& batch = batches_.front();
    std::uint32_t length = 0; // of the rest; it has been checked when it arrived
    std::memcpy(&length, batch.bytes.data() + batch.taken, sizeof length);
    const auto frame =
        std::span<const std::byte>(batch.bytes).subspan(batch.taken, length + sizeof length);
    batch.taken += frame.size();
    held_ -= frame.size();
    return frame;
}

void HeldEvents::endBatch() {
    // The last batch may still grow.
    if (!batches_.empty() && batches_.front().taken == batches_.front().bytes.size()) {
        if (!starts_.empty() && starts_.front() == removed_) {
            starts_.pop_front();
        }
        batches_.pop_front();
        ++removed_;
        held_ -= sizeof(Batch);
    }
}

void HeldEvents::clear() {
    removed_ += batches_.size();
    batches_.clear();
    starts_.clear();
    latest_.reset();
    held_ = 0;
}

void HeldEvents::count(Clock::duration lateness, Clock::time_point now) {
    ++timing_.batches;
    changed_ = now;
    if (lateness > lateness.zero()) {
        ++timing_.lateBatches;
        timing_.worstLateness =
            std::max(timing_.worstLateness, std::chrono::duration<double>(lateness).count());
    }
}

Corvid::Communicator::Timing
HeldEvents::timing(const Corvid::PeerClock& clock, Clock::time_point now) const {
    Corvid::Communicator::Timing timing = timing_;
    timing.clock = clock;
    timing.ready = ready_;
    timing.sceneAge = std::chrono::duration<double>(now - changed_).count();
    return timing;
}

} // namespace Orvel::detail
