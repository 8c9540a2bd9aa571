#pragma once

#include <Orvel/Source.h>
#include <Orvel/Vec3f.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <numbers>
#include <streambuf>
#include <string>
#include <vector>

namespace OrvelBench {

constexpr unsigned kRate = 44100;

/// A second of a sine at 441 Hz, 16-bit mono at kRate; it loops without a click.
inline std::vector<unsigned char> tone() {
    std::vector<unsigned char> bytes;
    for (unsigned i = 0; i < kRate; ++i) {
        const double phase = 2.0 * std::numbers::pi * 441.0 * i / kRate;
        const auto sample = static_cast<std::int16_t>(std::lround(8000.0 * std::sin(phase)));
        bytes.push_back(static_cast<unsigned char>(sample & 0xFF));
        bytes.push_back(static_cast<unsigned char>((sample >> 8) & 0xFF));
    }
    return bytes;
}

/// Sets a source's samples, without the line on standard error.
inline void setSamples(Orvel::Source& source, const std::vector<unsigned char>& samples) {
    std::streambuf* const errors = std::cerr.rdbuf(nullptr);
    source.setData(kRate, 16, 1, samples.data(), static_cast<unsigned>(samples.size()));
    std::cerr.rdbuf(errors);
}

/// The place of an emitter on a path around the listener, 2 to 12 units away; repeats after kSteps
/// steps.
constexpr int kSteps = 64;
inline Orvel::Vec3f placeOf(int emitter, int step) {
    const double angle = 2.0 * std::numbers::pi * step / kSteps + emitter;
    const double distance = 2.0 + emitter % 11;
    return {
        static_cast<float>(distance * std::cos(angle)), 0.0F,
        static_cast<float>(distance * std::sin(angle))};
}

/// Gives every run the same OpenAL: no sound card and no user settings. Call it before OpenAL is
/// used, which reads the environment once.
inline void isolateOpenAL() {
    // NOLINTBEGIN(concurrency-mt-unsafe): no other thread runs yet
    setenv("ALSOFT_DRIVERS", "null", 1);
    setenv("ALSOFT_LOGLEVEL", "0", 1);
    setenv("HOME", "/nonexistent", 1);
    setenv("XDG_CONFIG_HOME", "/nonexistent", 1);
    unsetenv("ALSOFT_CONF");
    // NOLINTEND(concurrency-mt-unsafe)
}

} // namespace OrvelBench
