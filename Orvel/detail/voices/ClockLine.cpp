#include <Orvel/detail/voices/ClockLine.h>

#include <cmath>

namespace Orvel::detail {

namespace {

double secondsBetween(ClockLine::Time from, ClockLine::Time to) {
    return std::chrono::duration<double>(to - from).count();
}

/// How far a device's rate is from the nominal one, as a ratio, and for how long the errors of its
/// readings are alike, in seconds: typical values.
constexpr double kDrift = 1e-4;
constexpr double kAlike = 5.0;

} // namespace

void ClockLine::reset(double rate) {
    nominal_ = rate;
    rate_ = rate;
    readings_.clear();
    begin_ = {};
}

void ClockLine::add(Time time, double frame) {
    if (begin_ == Time{}) {
        begin_ = time;
    }
    if (time - begin_ < kSettling) {
        readings_.clear();
    } else if (time - readings_.back().time < kSpacing) {
        return;
    } else if (std::abs(frame - frameAt(time)) > kMaxError * nominal_) {
        reset(nominal_);
    }
    readings_.push_back({time, frame});
    if (readings_.size() > kMaxReadings) {
        readings_.pop_front();
    }
    fit();
}

double ClockLine::frameAt(Time time) const {
    const Reading& first = readings_.front();
    return first.frame + meanFrame_ + (secondsBetween(first.time, time) - meanTime_) * rate_;
}

void ClockLine::fit() {
    const Reading& first = readings_.front();
    const auto count = static_cast<double>(readings_.size());
    double times = 0.0;
    double frames = 0.0;
    for (const Reading& reading : readings_) {
        times += secondsBetween(first.time, reading.time);
        frames += reading.frame - first.frame;
    }
    meanTime_ = times / count;
    meanFrame_ = frames / count;
    double products = 0.0;
    double squares = 0.0;
    double errors = 0.0; // against the nominal rate
    for (const Reading& reading : readings_) {
        const double x = secondsBetween(first.time, reading.time) - meanTime_;
        const double error = reading.frame - first.frame - meanFrame_ - x * nominal_;
        products += x * error;
        squares += x * x;
        errors += error * error;
    }
    if (squares == 0.0) {
        rate_ = nominal_;
        return;
    }
    // The estimate with the least expected error: the measured deviation from the nominal rate,
    // reduced by the share of its variance that is not the device's.
    const double span = secondsBetween(first.time, readings_.back().time);
    const double variance = (errors - products * products / squares) / count / nominal_ / nominal_;
    const double uncertainty = 12.0 * kAlike * variance / (span * span * span);
    rate_ = nominal_ + products / squares * kDrift * kDrift / (kDrift * kDrift + uncertainty);
}

} // namespace Orvel::detail
