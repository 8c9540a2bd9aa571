#pragma once

#include <Corvid/Communicator.h>
#include <Orvel/ClockEvent.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <vector>

namespace Orvel::detail {

/// The events of one client that sends times, until they are due. Confined to the server's thread.
class HeldEvents {
public:
    using Clock = std::chrono::steady_clock;

    /// Limit of bytes held for one client. With more, the oldest are due at once.
    static constexpr std::size_t kMaxBytes = std::size_t{64} << 20U;
    /// Limit of the time that events are held beyond the latency, against wrong times.
    static constexpr std::chrono::milliseconds kMaxExcess{2000};
    /// Events are held until the client's clock is known well, at most for this long after its
    /// offer.
    static constexpr std::chrono::milliseconds kTimeToKnow{1300};

    HeldEvents(const ClockEvent& offer, Clock::time_point now);

    /// The following frames happen at this time of the client's clock.
    void beginBatch(std::int64_t time, Clock::time_point arrived);
    /// Returns false if nothing says when it happens.
    bool hold(std::span<const std::byte> frame);

    /// How long before they are due events are taken: those that start sounds or create parts, and
    /// those that only set values.
    struct Lead {
        Clock::duration start{};
        Clock::duration value{};
    };

    /// When the next frames are due; nothing if there are none. The clock may not be known well
    /// enough yet; then this is when to ask again, and isReady() is false.
    [[nodiscard]] std::optional<Clock::time_point>
    nextDue(const Corvid::PeerClock& clock, Clock::duration delay) const;
    /// When the next frames are to be taken; see nextDue().
    [[nodiscard]] std::optional<Clock::time_point>
    nextTaken(const Corvid::PeerClock& clock, Clock::duration delay, const Lead& lead) const;
    /// When the client sent its offer.
    [[nodiscard]] Clock::time_point offered() const { return offered_; }
    /// Returns whether isReady() is true from now on.
    bool becomesReady(const Corvid::PeerClock& clock, Clock::time_point now);
    /// Whether the client's clock is known well enough.
    [[nodiscard]] bool isReady() const { return ready_; }
    /// When the batch that is due next arrived.
    [[nodiscard]] Clock::time_point arrived() const { return batches_.front().arrived; }
    /// Whether take() gives the first frame of a batch.
    [[nodiscard]] bool isAtBegin() const { return batches_.front().taken == 0; }
    /// Whether that batch has frames that have not been taken.
    [[nodiscard]] bool hasNext() const {
        return !batches_.empty() && batches_.front().taken < batches_.front().bytes.size();
    }
    /// The next frame, valid until the next call of another function.
    std::span<const std::byte> take();
    /// Removes a batch that has been taken.
    void endBatch();
    [[nodiscard]] bool isEmpty() const { return batches_.empty(); }
    void clear();

    /// Counts a batch with its lateness, which is negative if it is in time.
    void count(Clock::duration lateness, Clock::time_point now);
    [[nodiscard]] Corvid::Communicator::Timing
    timing(const Corvid::PeerClock& clock, Clock::time_point now) const;

private:
    struct Batch {
        std::int64_t time = 0;
        Clock::time_point arrived;
        std::size_t taken = 0; // of the bytes
        std::vector<std::byte> bytes;
    };

    const Clock::time_point offered_;
    const bool system_;
    const std::chrono::nanoseconds latency_;
    bool ready_ = false;
    [[nodiscard]] Clock::time_point
    dueOf(const Batch& batch, const Corvid::PeerClock& clock, Clock::duration delay) const;

    std::deque<Batch> batches_;
    std::uint64_t removed_ = 0;        // batches before these
    std::deque<std::uint64_t> starts_; // numbers of the batches that do not only set values
    std::size_t held_ = 0;             // bytes, with those of the batches themselves
    std::optional<Batch> latest_;      // without its frames; nothing before the first
    bool isNew_ = false;               // it has no frames so far
    Corvid::Communicator::Timing timing_;
    Clock::time_point changed_;
};

} // namespace Orvel::detail
