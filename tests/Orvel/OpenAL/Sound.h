#pragma once

#include <Orvel/Emitter.h>
#include <Orvel/Source.h>
#include <Orvel/World.h>

#include <cmath>
#include <numbers>
#include <vector>

namespace Orvel::Test {

/// 16-bit samples of a tone of peak 0.5.
inline std::vector<unsigned char> tone(double seconds, double hertz) {
    std::vector<unsigned char> bytes;
    for (double t = 0.0; t < seconds - 1e-9; t = static_cast<double>(bytes.size()) / 88200.0) {
        const double phase = 2.0 * std::numbers::pi * hertz * t;
        const auto value = static_cast<unsigned>(std::lround(16384.0 * std::sin(phase)));
        bytes.push_back(static_cast<unsigned char>(value));
        bytes.push_back(static_cast<unsigned char>(value >> 8U));
    }
    return bytes;
}

/// Interleaved output samples, left first.
using Stereo = std::vector<float>;

/// RMS of a channel in dB below full scale; -200 for silence.
inline double level(const Stereo& sound, std::size_t channel) {
    double sum = 0.0;
    for (std::size_t i = channel; i < sound.size(); i += 2) {
        sum += std::pow(static_cast<double>(sound[i]), 2.0);
    }
    const double mean = 2.0 * sum / static_cast<double>(sound.size());
    return mean > 1e-20 ? 10.0 * std::log10(mean) : -200.0;
}

/// Plays a tone at a position.
inline Emitter* play(
    World& world, const Vec3f& position, const std::vector<unsigned char>& samples,
    unsigned channels = 1) {
    Source* source = world.createSource();
    source->setData(44100, 16, channels, samples.data(), static_cast<unsigned>(samples.size()));
    Emitter* emitter = world.createEmitter();
    emitter->setTransform(&position, nullptr);
    emitter->setHull(1000, 1000, 1, 1);
    emitter->setSource(source);
    emitter->setState(WorldPart::PLAY);
    return emitter;
}

} // namespace Orvel::Test
