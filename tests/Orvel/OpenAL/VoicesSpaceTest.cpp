// Layouts, headphones, motion and rooms of the kind "voices", measured offline with OpenAL Soft.
#include "Hall.h"

#include <algorithm>
#include <array>
#include <complex>
#include <fstream>
#include <iterator>
#include <random>

namespace Orvel::Test {

namespace {

/// RMS of a channel of interleaved samples, from a frame on.
double rms(const Stereo& sound, std::size_t channels, std::size_t channel, std::size_t from = 0) {
    double sum = 0.0;
    std::size_t count = 0;
    for (std::size_t i = from * channels + channel; i < sound.size(); i += channels, ++count) {
        sum += std::pow(static_cast<double>(sound[i]), 2.0);
    }
    return std::sqrt(sum / static_cast<double>(count));
}

double decibels(double ratio) {
    return 20.0 * std::log10(ratio);
}

/// A whole number of periods in a second, so it loops.
Emitter* hum(World& world, const Vec3f& position, double hertz) {
    Emitter* emitter = play(world, position, tone(1.0, hertz));
    emitter->source()->setParam(true, 1.0F);
    return emitter;
}

/// The frequency of a stereo sound between two frames, by the phase that it has there.
double frequencyOf(const Stereo& sound, double guess, std::size_t from, std::size_t to) {
    constexpr std::size_t kWindow = 2205;
    const auto phaseAt = [&](std::size_t frame) {
        std::complex<double> sum;
        for (std::size_t i = 0; i < kWindow; ++i) {
            const double part = static_cast<double>(i) / kWindow;
            const double weight = 1.0 - std::cos(2.0 * std::numbers::pi * part);
            const double angle = -2.0 * std::numbers::pi * guess * static_cast<double>(i) / 44100.0;
            const std::size_t left = 2 * (frame + i);
            sum += weight * static_cast<double>(sound[left] + sound[left + 1]) *
                   std::polar(1.0, angle);
        }
        return std::arg(sum);
    };
    const double seconds = static_cast<double>(to - kWindow - from) / 44100.0;
    const double turned = phaseAt(to - kWindow) - phaseAt(from);
    // The phase of the guess over the same time; the difference is less than half a turn.
    return guess +
           std::remainder(turned / (2.0 * std::numbers::pi) - guess * seconds, 1.0) / seconds;
}

} // namespace

TEST(VoicesOutput, HearsASoundAsWideAsItsRadius) {
    Hall hall("output=stereo");
    Emitter* emitter = hum(hall.world, {1, 0, -2}, 500);
    const auto lean = [&] {
        hall.hear(0.1); // until it has changed
        const Stereo sound = hall.hear(0.2);
        return decibels(rms(sound, 2, 1) / rms(sound, 2, 0));
    };
    const double point = lean();
    EXPECT_GT(point, 3.0);
    emitter->setRadius(6.0F);
    EXPECT_LT(std::abs(lean()), 0.5 * point);
    emitter->setRadius(0.0F);
    EXPECT_NEAR(lean(), point, 0.1);
}

TEST(VoicesOutput, HasTheChannelsOfItsLayoutAndPlacesSoundsInThem) {
    const struct {
        const char* layout;
        unsigned channels;
        Vec3f place;
        std::size_t loudest;
    } rows[] = {{"mono", 1, {-3, 0, 0}, 0},       {"stereo", 2, {3, 0, 0}, 1},
                {"quad", 4, {-2, 0, 2}, 2},       {"quad", 4, {2, 0, -2}, 1},
                {"5.1", 6, {-1.5F, 0, -2.6F}, 0}, {"5.1", 6, {3, 0, 1}, 5},
                {"6.1", 7, {0, 0, 3}, 4},         {"7.1", 8, {-1.5F, 0, 2.6F}, 4},
                {"7.1", 8, {3, 0, 0}, 7},         {"7.1", 8, {-1.5F, 0, -2.6F}, 0}};
    for (const auto& row : rows) {
        Hall hall(std::string("output=") + row.layout);
        ASSERT_EQ(hall.ear->layout().channels, row.channels) << row.layout;
        hum(hall.world, row.place, 500);
        const Stereo sound = hall.hear(0.3);
        std::vector<double> levels;
        for (std::size_t channel = 0; channel < row.channels; ++channel) {
            levels.push_back(rms(sound, row.channels, channel));
        }
        EXPECT_EQ(std::ranges::max_element(levels) - levels.begin(), row.loudest) << row.layout;
        EXPECT_GT(decibels(levels[row.loudest]), -30.0) << row.layout;
    }
    Hall hall("output=9.1");
    EXPECT_NE(hall.log.take().at(0).find("5.1, 6.1, 7.1"), std::string::npos);
    EXPECT_EQ(hall.ear->layout().channels, 2U);
}

TEST(VoicesOutput, ForHeadphonesDelaysAndAttenuatesLikeItsDataSet) {
    Hall unknown("output=headphones hrtf=none");
    EXPECT_NE(unknown.log.take().at(0).find("\"default-44100\""), std::string::npos);
    // The data set: impulse responses of the left ear at the horizon, every 5 degrees clockwise.
    const auto names = VoicesBackend::hrtfNames();
    ASSERT_NE(std::ranges::find(names, "default-44100"), names.end());
    std::ifstream file("/usr/share/openal/hrtf/default-44100.mhr", std::ios::binary);
    const std::vector<unsigned char> bytes{std::istreambuf_iterator<char>(file), {}};
    ASSERT_GT(bytes.size(), 100U);
    ASSERT_EQ(std::string(bytes.begin(), bytes.begin() + 8), "MinPHR02");
    const std::size_t length = bytes[14];
    const std::size_t elevations = bytes[18];
    const auto sum = [&](std::size_t rows) {
        std::size_t total = 0;
        for (std::size_t i = 0; i < rows; ++i) {
            total += bytes[19 + i];
        }
        return total;
    };
    const std::size_t horizon = sum(elevations / 2);
    ASSERT_EQ(bytes[19 + elevations / 2], 72);
    const std::size_t begin = 19 + elevations;
    const auto responseAt = [&](int degrees) { // of the left ear
        const auto index = horizon + static_cast<std::size_t>((degrees + 360) % 360 / 5);
        std::vector<double> response(1024);
        const std::size_t delay = bytes[begin + sum(elevations) * length * 3 + index];
        for (std::size_t i = 0; i < length; ++i) {
            const std::size_t at = begin + 3 * (index * length + i);
            const auto bits = static_cast<std::uint32_t>(
                bytes[at] << 8U | bytes[at + 1] << 16U | std::uint32_t{bytes[at + 2]} << 24U);
            response[delay + i] = static_cast<std::int32_t>(bits) / 2147483648.0;
        }
        return response;
    };
    // How much later and louder the right ear hears than the left: microseconds, dB.
    const auto compare = [](const std::vector<double>& left, const std::vector<double>& right) {
        double best = 0.0;
        double later = 0.0;
        for (int shift = -600; shift <= 600; ++shift) { // in tenths of a frame
            double product = 0.0;
            for (std::size_t i = 100; i + 100 < right.size(); ++i) {
                const double at = static_cast<double>(i) - shift / 10.0;
                const auto whole = static_cast<std::size_t>(at);
                const double part = at - static_cast<double>(whole);
                product += right[i] * ((1.0 - part) * left[whole] + part * left[whole + 1]);
            }
            if (product > best) {
                best = product;
                later = shift / 10.0 / 44100.0 * 1e6;
            }
        }
        const auto energy = [](const std::vector<double>& response) {
            double total = 0.0;
            for (const double value : response) {
                total += value * value;
            }
            return total;
        };
        return std::pair(later, 10.0 * std::log10(energy(right) / energy(left)));
    };
    const auto centred = [](std::vector<double> response) {
        response.insert(response.begin(), 200, 0.0);
        return response;
    };
    for (const int degrees : {30, -30, 60, -60, 90, -90, 180}) { // to the right
        Hall hall("output=headphones hrtf=default");
        EXPECT_EQ(hall.log.take().size(), 0U);
        const double angle = degrees * std::numbers::pi / 180.0;
        std::vector<unsigned char> click(8820);
        click[801] = 0x60;
        play(
            hall.world,
            {static_cast<float>(std::sin(angle)), 0, static_cast<float>(-std::cos(angle))}, click);
        const Stereo sound = hall.hear(0.05);
        std::vector<double> ears[2];
        for (std::size_t i = 0; i < 1024; ++i) {
            ears[0].push_back(static_cast<double>(sound[2 * (i + 200)]));
            ears[1].push_back(static_cast<double>(sound[2 * (i + 200) + 1]));
        }
        const auto heard = compare(ears[0], ears[1]);
        const auto wanted = compare(centred(responseAt(degrees)), centred(responseAt(-degrees)));
        EXPECT_NEAR(heard.first, wanted.first, 50.0) << degrees;
        EXPECT_NEAR(heard.second, wanted.second, 2.0) << degrees;
        if (degrees == 90) {
            EXPECT_LT(heard.first, -400.0) << "the right ear is first";
        }
    }
}

TEST(VoicesMotion, ShiftsThePitchByTheFormula) {
    for (const float factor : {0.0F, 1.0F, 0.5F}) {
        Hall hall("doppler=" + std::to_string(factor));
        Emitter* emitter = hum(hall.world, {0, 0, 0}, 1000);
        emitter->setHull(1000, 1000, 1000, 1000);
        std::mt19937 random(3);
        Stereo sound;
        double jumped = 0.0;
        for (double seconds = -1.5; seconds < 1.5;) {
            if (seconds > 0.7) {
                jumped = 5.0;
            }
            const Vec3f place{static_cast<float>(30.0 * seconds + jumped), 0, -4};
            emitter->setTransform(&place, nullptr);
            // About 100 times a second.
            const Stereo part = hall.hearFrames(static_cast<std::int64_t>(411 + random() % 61));
            sound.insert(sound.end(), part.begin(), part.end());
            seconds = static_cast<double>(sound.size() / 2) / 44100.0 - 1.5;
        }
        const auto expected = [&](double at) {
            const double x = -30.0 * at; // from the source to the listener
            const double towards = 30.0 * x / std::hypot(x, 4.0);
            return 1000.0 * 343.3 / (343.3 - static_cast<double>(factor) * towards);
        };
        for (const double at : {-1.0, -0.5, 0.4, 0.7, 1.0}) {
            const auto from = static_cast<std::size_t>((at + 1.5) * 44100.0);
            const double heard = frequencyOf(sound, expected(at), from - 2205, from + 2205);
            EXPECT_NEAR(heard / expected(at), 1.0, 0.005) << at << ' ' << factor;
        }
    }
}

TEST(VoicesRooms, AreDampedByTheValueOfAnEmitter) {
    const struct {
        const char* params;
        float value;
        double hertz, least, most; // change of level in dB
    } rows[] = {
        {"", 1.0F, 8000, -0.1, 0.1},
        {"value=occlusion", 0.0F, 8000, -0.1, 0.1},
        {"value=occlusion", 0.5F, 8000, -30, -10},
        {"value=occlusion", 1.0F, 8000, -70, -30},
        {"value=occlusion", 7.0F, 8000, -70, -30},
        {"value=occlusion", 1.0F, 100, -3, 0.1}};
    for (const auto& row : rows) {
        Hall hall(row.params);
        Emitter* emitter = hum(hall.world, {0, 0, -1}, row.hertz);
        hall.hear(0.1);
        const double before = level(hall.hear(0.2), 0);
        emitter->setParam(true, row.value, 1.0F);
        hall.hear(0.1);
        const double change = level(hall.hear(0.2), 0) - before;
        EXPECT_GT(change, row.least) << &row - rows;
        EXPECT_LT(change, row.most) << &row - rows;
        emitter->setParam(true, 0.0F, 1.0F);
        hall.hear(0.1);
        EXPECT_NEAR(level(hall.hear(0.2), 0), before, 0.1) << "it opens again";
    }
}

TEST(VoicesRooms, ReverberateAsLongAsTheirPresets) {
    for (const char* preset : {"generic", "concerthall", "bathroom", "castle-hall"}) {
        Hall hall(std::string("wet=0.5 reverb=") + preset);
        // A burst of many tones around 1 kHz, where the decay time holds.
        std::mt19937 random(4);
        std::vector<float> burst(22050);
        for (int i = 0; i < 150; ++i) {
            const double hertz = 600.0 + 8.0 * i;
            const double phase = static_cast<double>(random()) / 683565276.0;
            for (std::size_t n = 0; n < burst.size(); ++n) {
                burst[n] += static_cast<float>(
                    std::sin(hertz * 6.2832 * static_cast<double>(n) / 44100.0 + phase));
            }
        }
        std::vector<unsigned char> samples;
        for (const float value : burst) {
            const auto bits = static_cast<unsigned>(std::lround(value * 400.0F));
            samples.push_back(static_cast<unsigned char>(bits));
            samples.push_back(static_cast<unsigned char>(bits >> 8U));
        }
        play(hall.world, {0, 0, -1}, samples);
        hall.hear(0.5);
        hall.hear(0.1);
        const Stereo tail = hall.hear(8.0);
        // Schroeder's integral, from -5 to -25 dB.
        std::vector<double> left(tail.size() / 2);
        double sum = 0.0;
        for (std::size_t i = left.size(); i-- > 0;) {
            sum += std::pow(static_cast<double>(tail[2 * i]), 2.0);
            left[i] = sum;
        }
        const auto reaches = [&](double level) {
            return std::ranges::find_if(
                       left,
                       [&](double energy) {
                           return energy < left[0] * std::pow(10.0, level / 10.0);
                       }) -
                   left.begin();
        };
        const double decay = 3.0 * static_cast<double>(reaches(-25.0) - reaches(-5.0)) / 44100.0;
        EXPECT_NEAR(decay / static_cast<double>(VoicesBackend::reverbDecay(preset)), 1.0, 0.2)
            << preset;
    }
}

} // namespace Orvel::Test
