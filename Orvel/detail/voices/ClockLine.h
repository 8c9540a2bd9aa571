#pragma once

#include <chrono>
#include <cstddef>
#include <deque>

namespace Orvel::detail {

/// The line through readings of a device's position, each with its time: single readings jitter by
/// the device's period. Confined.
class ClockLine {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// Begins anew, with the nominal rate in frames per second.
    void reset(double rate);
    /// Adds a reading. One that is far off the line, as after a gap of the device, begins anew.
    void add(Time time, double frame);

    [[nodiscard]] bool empty() const noexcept { return readings_.empty(); }
    /// The line's frame at a time. There is a reading.
    [[nodiscard]] double frameAt(Time time) const;
    /// Frames per second: the nominal rate until the readings span kLongEnough.
    [[nodiscard]] double rate() const noexcept { return rate_; }

private:
    static constexpr std::size_t kMaxReadings = 512;
    static constexpr std::chrono::milliseconds kSpacing{20};
    static constexpr std::chrono::seconds kLongEnough{2};
    /// Seconds between a reading and the line.
    static constexpr double kMaxError = 0.05;

    struct Reading {
        Time time;
        double frame;
    };

    void fit();

    double nominal_ = 0.0;
    double rate_ = 0.0;
    std::deque<Reading> readings_;
    // The means, relative to the first reading.
    double meanTime_ = 0.0;
    double meanFrame_ = 0.0;
};

} // namespace Orvel::detail
