#pragma once

#include <Vessa/Mutex.h>

#include <atomic>
#include <chrono>
#include <cstdint>

namespace Corvid::detail {

/// Limits the lines of one kind that peers can cause in a period, and counts those left out.
/// Synchronised.
class LineLimit {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::seconds kPeriod{10};

    explicit LineLimit(unsigned most) : most_(most) {}

    /// Whether one more line may be written.
    bool admit() {
        const Vessa::Lock lock(mutex_);
        const auto now = Clock::now();
        if (now - begin_ >= kPeriod) {
            begin_ = now;
            lines_ = 0;
        }
        if (lines_ < most_) {
            ++lines_;
            return true;
        }
        ++leftOut_;
        return false;
    }
    /// Number of lines left out since the last call; 0 until the period is over. `final`: ends the
    /// period.
    std::uint64_t takeLeftOut(bool final = false) {
        if (leftOut_ == 0) { // the usual case
            return 0;
        }
        const Vessa::Lock lock(mutex_);
        if (!final && Clock::now() - begin_ < kPeriod) {
            return 0;
        }
        begin_ = {};
        return leftOut_.exchange(0);
    }

private:
    const unsigned most_;
    std::atomic<std::uint64_t> leftOut_ = 0;
    Vessa::Mutex mutex_;
    Clock::time_point begin_ ORVEL_GUARDED_BY(mutex_);
    unsigned lines_ ORVEL_GUARDED_BY(mutex_) = 0; // written since `begin_`
};

} // namespace Corvid::detail
