#include "hrtf/HrtfFile.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <memory>
#include <mysofa.h>
#include <numbers>
#include <span>
#include <stdexcept>
#include <vector>

namespace OrvelTool {

namespace {

/// The number of azimuths at each elevation, from below upwards every 10 degrees.
constexpr std::array<std::uint8_t, 19> kAzimuths{1,  12, 24, 36, 45, 56, 60, 72, 72, 72,
                                                 72, 72, 60, 56, 45, 36, 24, 12, 1};
/// OpenAL's limits of a response's length and of its delay, in samples.
constexpr std::size_t kLength = 128;
constexpr long kMaxDelay = 63;
/// What is kept before the first arrival, and the end that fades out.
constexpr long kBefore = 4;
constexpr std::size_t kFade = 16;
/// The first arrival is where a response reaches this part of its peak.
constexpr float kArrival = 0.15F;
/// OpenAL's limits of the distance, in millimetres.
constexpr double kMinDistance = 50.0;
constexpr double kMaxDistance = 2500.0;

struct Closer {
    void operator()(MYSOFA_EASY* sofa) const { mysofa_close(sofa); }
};

/// The response of one ear in one direction, and when it begins.
struct Response {
    std::array<float, kLength> samples{};
    long delay = 0;
};

Response responseOf(std::span<const float> samples, float delaySeconds, double rate) {
    float peak = 0.0F;
    for (const float sample : samples) {
        peak = std::max(peak, std::abs(sample));
    }
    const auto arrival = std::ranges::find_if(
        samples, [&](float sample) { return std::abs(sample) >= kArrival * peak; });
    const long begin = std::max(static_cast<long>(arrival - samples.begin()) - kBefore, 0L);
    Response response;
    response.delay = begin + std::lround(static_cast<double>(delaySeconds) * rate);
    for (std::size_t i = 0; i < kLength && static_cast<std::size_t>(begin) + i < samples.size();
         ++i) {
        const auto left = static_cast<float>(kLength - i) / static_cast<float>(kFade);
        response.samples[i] = samples[static_cast<std::size_t>(begin) + i] * std::min(left, 1.0F);
    }
    return response;
}

void put(std::string& to, std::uint32_t value, unsigned bytes) {
    for (unsigned i = 0; i < bytes; ++i) {
        to += static_cast<char>(value >> (8U * i) & 0xffU);
    }
}

} // namespace

std::string convertSofa(const std::string& path, unsigned rate) {
    int length = 0;
    int error = 0;
    const std::unique_ptr<MYSOFA_EASY, Closer> sofa(
        mysofa_open(path.c_str(), static_cast<float>(rate), &length, &error));
    if (sofa == nullptr || length <= 0) {
        throw std::runtime_error(
            path +
            ": expected a SOFA file with impulse responses of a head "
            "(SimpleFreeFieldHRIR); libmysofa reports error " +
            std::to_string(error));
    }
    const MYSOFA_HRTF& data = *sofa->hrtf;
    const double metres = data.SourcePosition.elements >= 3
                              ? static_cast<double>(std::hypot(
                                    data.SourcePosition.values[0], data.SourcePosition.values[1],
                                    data.SourcePosition.values[2]))
                              : 1.0;
    std::vector<Response> responses; // left, right, ...
    std::vector<float> left(static_cast<std::size_t>(length));
    std::vector<float> right(left.size());
    for (std::size_t row = 0; row < kAzimuths.size(); ++row) {
        const double elevation =
            (static_cast<double>(row) * 10.0 - 90.0) * std::numbers::pi / 180.0;
        for (unsigned i = 0; i < kAzimuths[row]; ++i) { // clockwise from ahead
            const double azimuth = 2.0 * std::numbers::pi * i / kAzimuths[row];
            float delays[2]{};
            // libmysofa's axes: x ahead, y to the left, z upwards.
            mysofa_getfilter_float(
                sofa.get(), static_cast<float>(metres * std::cos(elevation) * std::cos(azimuth)),
                static_cast<float>(-metres * std::cos(elevation) * std::sin(azimuth)),
                static_cast<float>(metres * std::sin(elevation)), left.data(), right.data(),
                &delays[0], &delays[1]);
            responses.push_back(responseOf(left, delays[0], rate));
            responses.push_back(responseOf(right, delays[1], rate));
        }
    }
    long first = responses.front().delay;
    float peak = 0.0F;
    for (const Response& response : responses) {
        first = std::min(first, response.delay);
        for (const float sample : response.samples) {
            peak = std::max(peak, std::abs(sample));
        }
    }
    if (!(peak > 0.0F) || !std::isfinite(peak)) {
        throw std::runtime_error(path + ": its impulse responses are silent");
    }
    std::string file = "MinPHR02";
    put(file, rate, 4);
    put(file, 1, 1); // samples of 24 bits
    put(file, 1, 1); // of both ears
    put(file, kLength, 1);
    put(file, 1, 1); // one distance
    put(file,
        static_cast<std::uint32_t>(
            std::clamp(std::round(metres * 1000.0), kMinDistance, kMaxDistance)),
        2);
    put(file, kAzimuths.size(), 1);
    file.append(kAzimuths.begin(), kAzimuths.end());
    const float scale = std::min(1.0F, 1.0F / peak); // the loudest sample fits
    for (std::size_t i = 0; i < responses.size(); i += 2) {
        for (std::size_t sample = 0; sample < kLength; ++sample) {
            for (const std::size_t ear : {i, i + 1}) {
                const float value = responses[ear].samples[sample] * scale * 8388607.0F;
                put(file, static_cast<std::uint32_t>(std::lround(value)), 3);
            }
        }
    }
    for (const Response& response : responses) {
        put(file, static_cast<std::uint32_t>(std::min(response.delay - first, kMaxDelay)), 1);
    }
    return file;
}

} // namespace OrvelTool
