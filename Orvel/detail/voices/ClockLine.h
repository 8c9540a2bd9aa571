#pragma once

#include <chrono>
#include <cstddef>
#include <deque>

namespace Orvel::detail {

/// The line through readings of a device's position, each with its time. Single readings jitter by
/// the device's period, and those of a sound server err by milliseconds for seconds, so the line
/// goes through those of 40 s, and its slope leaves the nominal rate as far as they are sure of it.
/// Confined.
class ClockLine {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// Begins anew, with the nominal rate in frames per second.
    void reset(double rate);
    /// Adds a reading. One that is far off the line, as after a gap of the device, begins anew. In
    /// the first kSettling each one does, because a sound server then fills its buffers.
    void add(Time time, double frame);

    [[nodiscard]] bool empty() const noexcept { return readings_.empty(); }
    /// The line's frame at a time. There is a reading.
    [[nodiscard]] double frameAt(Time time) const;
    /// Frames per second.
    [[nodiscard]] double rate() const noexcept { return rate_; }

private:
    static constexpr std::size_t kMaxReadings = 512;
    static constexpr std::chrono::milliseconds kSpacing{80};
    static constexpr std::chrono::seconds kSettling{1};
    /// Seconds between a reading and the line.
    static constexpr double kMaxError = 0.05;

    struct Reading {
        Time time;
        double frame;
    };

    void fit();

    double nominal_ = 0.0;
    double rate_ = 0.0;
    Time begin_{};
    std::deque<Reading> readings_;
    // The means, relative to the first reading.
    double meanTime_ = 0.0;
    double meanFrame_ = 0.0;
};

} // namespace Orvel::detail
