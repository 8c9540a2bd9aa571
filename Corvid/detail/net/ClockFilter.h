#pragma once

#include <Corvid/PeerClock.h>

#include <cstddef>
#include <cstdint>
#include <deque>

namespace Corvid::detail {

/// One exchange with a peer. Nanoseconds; the peer's times are of its own clock.
struct ClockSample {
    std::int64_t sent = 0;         ///< own time of the question
    std::int64_t peerReceived = 0; ///< peer's time of the question
    std::int64_t peerSent = 0;     ///< peer's time of the answer
    std::int64_t received = 0;     ///< own time of the answer
};

/// Estimates a peer's clock from exchanges with it. A message takes time, never less than none. So
/// each question limits the peer's offset from above and each answer from below, whatever the
/// network does, and the line of a clock with constant drift runs between these limits. The
/// estimate is the line in the middle of the widest gap between them; the error bound covers all
/// lines that fit. A message that the network delayed limits little, so it does no harm. Equal
/// least delays in both directions are the only assumption; how much they may differ is within the
/// bound. Confined.
class ClockFilter {
public:
    static constexpr std::int64_t kWindow = 30'000'000'000; ///< older samples are forgotten
    static constexpr std::size_t kMaxSamples = 1024;
    /// No two clocks drift apart by more: 100 ppm each, and 500 ppm each while they are set.
    static constexpr double kMaxDrift = 1200e-6;

    /// Returns false if it is impossible.
    bool add(const ClockSample& sample);
    void clear();

    [[nodiscard]] const PeerClock& estimate() const noexcept { return estimate_; }

private:
    bool fit();

    std::deque<ClockSample> samples_; // oldest first
    unsigned unfitted_ = 0;           // samples since the estimate was made
    PeerClock estimate_;
};

} // namespace Corvid::detail
