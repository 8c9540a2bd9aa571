#include <Orvel/detail/voices/ClockLine.h>

#include <cmath>

namespace Orvel::detail {

namespace {

double secondsBetween(ClockLine::Time from, ClockLine::Time to) {
    return std::chrono::duration<double>(to - from).count();
}

} // namespace

void ClockLine::reset(double rate) {
    nominal_ = rate;
    rate_ = rate;
    readings_.clear();
}

void ClockLine::add(Time time, double frame) {
    if (!readings_.empty()) {
        if (time - readings_.back().time < kSpacing) {
            return;
        }
        if (std::abs(frame - frameAt(time)) > kMaxError * nominal_) {
            reset(nominal_);
        }
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
    if (readings_.back().time - first.time < kLongEnough) {
        rate_ = nominal_;
        return;
    }
    double products = 0.0;
    double squares = 0.0;
    for (const Reading& reading : readings_) {
        const double x = secondsBetween(first.time, reading.time) - meanTime_;
        products += x * (reading.frame - first.frame - meanFrame_);
        squares += x * x;
    }
    rate_ = products / squares;
}

} // namespace Orvel::detail
