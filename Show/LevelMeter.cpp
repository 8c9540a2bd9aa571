#include <Show/LevelMeter.h>

#include <Orvel/OutputLayout.h>

#include <algorithm>
#include <array>
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

const char* channelName(std::size_t channels, std::size_t channel) {
    constexpr std::array<const char*, 11> kNames{
        "left", "right", "centre", "subwoofer", "back left", "back right",
        "",     "",      "back",   "side left", "side right"};
    if (channels == 1) {
        return "mono";
    }
    // The channels of a layout are in the order of their bits in its mask.
    for (const Orvel::OutputLayout& layout : Orvel::kOutputLayouts) {
        std::size_t before = 0;
        for (std::size_t bit = 0; bit < kNames.size() && layout.channels == channels; ++bit) {
            if ((layout.mask >> bit & 1U) != 0 && before++ == channel) {
                return kNames[bit];
            }
        }
    }
    return "";
}

void LevelMeter::Sum::add(const Sum& other) {
    for (std::size_t i = 0; i < channels.size(); ++i) {
        channels[i].peak = std::max(channels[i].peak, other.channels[i].peak);
        channels[i].squares += other.channels[i].squares;
    }
    frames += other.frames;
}

LevelMeter::Levels LevelMeter::Sum::levels() const {
    Levels levels(channels.size());
    for (std::size_t i = 0; i < channels.size() && frames != 0; ++i) {
        levels[i] = {
            channels[i].peak, std::sqrt(channels[i].squares / static_cast<double>(frames))};
    }
    return levels;
}

LevelMeter::LevelMeter(double rate, double seconds, std::size_t channels)
    : rate_(rate), windowSeconds_(seconds), channels_(channels),
      windowEnd_(endOfWindow(0, seconds, rate)), current_(channels), all_(channels) {}

void LevelMeter::add(std::span<const float> samples) {
    for (std::size_t i = 0; i + channels_ <= samples.size(); i += channels_) {
        // A window shorter than a frame is empty and counts as silence.
        while (frames() >= windowEnd_) {
            done_.push_back(current_);
            all_.add(current_);
            current_ = Sum(channels_);
            windowEnd_ = endOfWindow(done_.size(), windowSeconds_, rate_);
        }
        for (std::size_t channel = 0; channel < channels_; ++channel) {
            const double sample = static_cast<double>(samples[i + channel]);
            Sum::Channel& to = current_.channels[channel];
            to.peak = std::max(to.peak, std::abs(sample));
            to.squares += sample * sample;
        }
        ++current_.frames;
    }
}

std::vector<LevelMeter::Levels> LevelMeter::windows(std::size_t each) const {
    std::vector<Levels> windows;
    Sum sum(channels_);
    for (std::size_t i = 0; i < done_.size(); ++i) {
        sum.add(done_[i]);
        if ((i + 1) % each == 0) {
            windows.push_back(std::exchange(sum, Sum(channels_)).levels());
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
