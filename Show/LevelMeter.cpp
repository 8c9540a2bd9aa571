#include <Show/LevelMeter.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace Show {

namespace {

std::uint64_t endOfWindow(std::size_t window, double seconds, double rate) {
    return static_cast<std::uint64_t>(
        std::llround(static_cast<double>(window + 1) * seconds * rate));
}

} // namespace

double toDecibels(double level) {
    return 20.0 * std::log10(level);
}

void LevelMeter::Sum::add(const Sum& other) {
    for (std::size_t channel = 0; channel < kChannels; ++channel) {
        peak[channel] = std::max(peak[channel], other.peak[channel]);
        squares[channel] += other.squares[channel];
    }
    frames += other.frames;
}

LevelMeter::Levels LevelMeter::Sum::levels() const {
    Levels levels;
    for (std::size_t channel = 0; channel < kChannels && frames != 0; ++channel) {
        levels[channel] = {
            peak[channel], std::sqrt(squares[channel] / static_cast<double>(frames))};
    }
    return levels;
}

LevelMeter::LevelMeter(double rate, double seconds)
    : rate_(rate), windowSeconds_(seconds), windowEnd_(endOfWindow(0, seconds, rate)) {}

void LevelMeter::add(std::span<const float> samples) {
    for (std::size_t i = 0; i + 1 < samples.size(); i += kChannels) {
        // A window shorter than a frame is empty and counts as silence.
        while (frames() >= windowEnd_) {
            done_.push_back(current_);
            all_.add(current_);
            current_ = {};
            windowEnd_ = endOfWindow(done_.size(), windowSeconds_, rate_);
        }
        for (std::size_t channel = 0; channel < kChannels; ++channel) {
            const double sample = static_cast<double>(samples[i + channel]);
            current_.peak[channel] = std::max(current_.peak[channel], std::abs(sample));
            current_.squares[channel] += sample * sample;
        }
        ++current_.frames;
    }
}

std::vector<LevelMeter::Levels> LevelMeter::windows(std::size_t each) const {
    std::vector<Levels> windows;
    Sum sum;
    for (std::size_t i = 0; i < done_.size(); ++i) {
        sum.add(done_[i]);
        if ((i + 1) % each == 0) {
            windows.push_back(std::exchange(sum, {}).levels());
        }
    }
    sum.add(current_);
    if (sum.frames != 0) {
        windows.push_back(sum.levels());
    }
    return windows;
}

LevelMeter::Levels LevelMeter::all() const {
    Sum sum = all_;
    sum.add(current_);
    return sum.levels();
}

} // namespace Show
