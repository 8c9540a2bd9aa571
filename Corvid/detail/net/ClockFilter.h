#pragma once

#include <Corvid/PeerClock.h>

#include <cstdint>
#include <deque>
#include <limits>
#include <utility>
#include <vector>

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
/// estimate is the mean of the lines in the middle of the gap between them, by their likelihood;
/// the error bound covers all lines that fit. A message that the network delayed limits little, so
/// it does no harm. Equal least delays in both directions are the only assumption; how much they
/// may differ is within the bound. Confined.
class ClockFilter {
public:
    static constexpr std::int64_t kWindow = 30'000'000'000; ///< older samples are forgotten
    /// No two clocks drift apart by more: 100 ppm each, and 500 ppm each while they are set.
    static constexpr double kMaxDrift = 1200e-6;

    /// Returns false if it is impossible.
    bool add(const ClockSample& sample);
    void clear();

    [[nodiscard]] const PeerClock& estimate() const noexcept { return estimate_; }

private:
    static constexpr std::int64_t kPiece = 250'000'000;

    /// What is kept of the samples of kPiece: of the older ones, only the limits that count.
    struct Piece {
        std::int64_t begin = 0;
        std::int64_t latest = std::numeric_limits<std::int64_t>::min(); // answer
        std::vector<std::pair<std::int64_t, std::int64_t>> above; // own time, limit of the offset
        std::vector<std::pair<std::int64_t, std::int64_t>> below;
        std::int64_t roundTrip = std::numeric_limits<std::int64_t>::max(); // the shortest
        double roundTrips = 0.0;                                           // their sum
        std::uint64_t samples = 0;
    };

    void append(const ClockSample& sample);
    bool fit();

    std::deque<Piece> pieces_; // oldest first
    unsigned unfitted_ = 0;    // samples since the estimate was made
    PeerClock estimate_;
};

} // namespace Corvid::detail
