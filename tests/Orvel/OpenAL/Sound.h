#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <numbers>
#include <string>
#include <vector>

namespace Orvel::Test {

/// 16-bit samples of a tone of peak 0.5 that glides from one frequency to another, the same in
/// every channel.
inline std::vector<unsigned char>
tone(double seconds, double hertz, double lastHertz, unsigned rate, unsigned channels) {
    const auto frames = static_cast<std::size_t>(seconds * rate);
    std::vector<unsigned char> bytes;
    for (std::size_t frame = 0; frame < frames; ++frame) {
        const double t = static_cast<double>(frame) / rate;
        const double cycles = hertz * t + (lastHertz - hertz) * t * t / (2.0 * seconds);
        const auto value = static_cast<std::uint16_t>(static_cast<std::int16_t>(
            std::lround(16384.0 * std::sin(2.0 * std::numbers::pi * cycles))));
        for (unsigned channel = 0; channel < channels; ++channel) {
            bytes.push_back(static_cast<unsigned char>(value & 0xFFU));
            bytes.push_back(static_cast<unsigned char>(value >> 8U));
        }
    }
    return bytes;
}

/// What comes out: left and right samples in turn.
using Stereo = std::vector<float>;

inline std::vector<float> channel(const Stereo& sound, std::size_t which) {
    std::vector<float> samples;
    for (std::size_t i = which; i < sound.size(); i += 2) {
        samples.push_back(sound[i]);
    }
    return samples;
}

/// RMS of a channel in dB below full scale; -200 for silence.
inline double level(const Stereo& sound, std::size_t which) {
    double sum = 0.0;
    for (const float sample : channel(sound, which)) {
        sum += static_cast<double>(sample) * static_cast<double>(sample);
    }
    const double mean = sum / (static_cast<double>(sound.size()) / 2.0);
    return mean > 1e-20 ? 10.0 * std::log10(mean) : -200.0;
}

/// Of the left channel, by the upward crossings of zero.
inline double frequency(const Stereo& sound, unsigned rate) {
    const std::vector<float> samples = channel(sound, 0);
    int crossings = 0;
    for (std::size_t i = 1; i < samples.size(); ++i) {
        crossings += samples[i - 1] < 0.0F && samples[i] >= 0.0F ? 1 : 0;
    }
    return crossings * static_cast<double>(rate) / static_cast<double>(samples.size());
}

/// The greatest difference of neighbouring samples of the left channel.
inline float greatestStep(const Stereo& sound) {
    const std::vector<float> samples = channel(sound, 0);
    float step = 0.0F;
    for (std::size_t i = 1; i < samples.size(); ++i) {
        step = std::max(step, std::abs(samples[i] - samples[i - 1]));
    }
    return step;
}

/// A WAV file as its header claims it to be, with the given data.
struct WavFile {
    unsigned formatTag = 1; // PCM
    unsigned channels = 1;
    unsigned rate = 8000;
    unsigned bits = 16;
    std::vector<unsigned char> data;
    unsigned claimedBytes = 0; // of data; 0: what there is

    void write(const std::string& path) const {
        const auto size = claimedBytes != 0 ? claimedBytes : static_cast<unsigned>(data.size());
        std::string bytes = "RIFF" + number(size + 36, 4) + "WAVEfmt " + number(16, 4) +
                            number(formatTag, 2) + number(channels, 2) + number(rate, 4) +
                            number(rate * channels * bits / 8, 4) + number(channels * bits / 8, 2) +
                            number(bits, 2) + "data" + number(size, 4);
        bytes.append(data.begin(), data.end());
        std::ofstream(path, std::ios::binary) << bytes;
    }

private:
    static std::string number(unsigned value, int bytes) {
        std::string text;
        for (int i = 0; i < bytes; ++i) {
            text += static_cast<char>(value >> (8 * i) & 0xFFU);
        }
        return text;
    }
};

} // namespace Orvel::Test
