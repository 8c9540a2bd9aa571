#pragma once

#include <cstddef>
#include <random>
#include <sndfile.h>
#include <string>
#include <vector>

namespace Orvel::Test {

/// Writes a file of noise; its level is -10.8 dB in each channel.
inline std::string
writeNoise(const std::string& path, int format, unsigned channels, unsigned rate, double seconds) {
    SF_INFO info{0, static_cast<int>(rate), static_cast<int>(channels), format, 0, 0};
    std::mt19937 random(9);
    std::vector<float> samples(channels * static_cast<std::size_t>(seconds * rate));
    for (std::size_t i = 0; i < samples.size(); ++i) {
        samples[i] = i % channels == 0 ? static_cast<float>(random()) / 4294967296.0F - 0.5F
                                       : samples[i - 1];
    }
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    sf_writef_float(file, samples.data(), static_cast<sf_count_t>(samples.size() / channels));
    sf_close(file);
    return path;
}

} // namespace Orvel::Test
