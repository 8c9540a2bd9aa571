#include "SoundBank.h"

#include <cmath>
#include <fstream>
#include <gtest/gtest.h>
#include <limits>
#include <numbers>
#include <sndfile.h>
#include <support/TemporaryFolder.h>

using namespace OrvelTool;

namespace {

class SoundBankTest : public testing::Test {
protected:
    /// A sound file with these samples, the channels in turn.
    SoundFile write(
        const std::string& name, int format, int channels, const std::vector<double>& values,
        int rate = 8000) {
        const std::string path = folder_.file(name);
        SF_INFO info{};
        info.samplerate = rate;
        info.channels = channels;
        info.format = format;
        SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
        EXPECT_NE(file, nullptr) << sf_strerror(nullptr);
        sf_command(file, SFC_SET_CLIPPING, nullptr, SF_TRUE);
        sf_write_double(file, values.data(), static_cast<sf_count_t>(values.size()));
        sf_close(file);
        return {path, false};
    }

    const Samples* load(const Sound& sound) {
        Scene scene;
        scene.path = "s.json";
        scene.sources.resize(1);
        scene.sources[0].sound = sound;
        scene.sources[0].soundWhere = {5, "sources[0].file"};
        problems_.clear();
        const bool good = bank_.load(scene, problems_);
        EXPECT_EQ(good, problems_.empty());
        return bank_.find(sound);
    }

    Orvel::Test::TemporaryFolder folder_;
    SoundBank bank_;
    std::vector<Problem> problems_;
};

} // namespace

TEST_F(SoundBankTest, SixteenBitsComeThroughBitByBit) {
    std::vector<double> values;
    for (int i = -32768; i <= 32767; ++i) {
        values.push_back(i / 32768.0);
    }
    const Samples* samples =
        load(write("a.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, values, 48000));
    ASSERT_NE(samples, nullptr);
    EXPECT_EQ(samples->rate, 48000U);
    ASSERT_EQ(samples->values.size(), values.size());
    for (std::size_t i = 0; i < values.size(); ++i) {
        ASSERT_EQ(samples->values[i], static_cast<int>(i) - 32768);
    }
}

TEST_F(SoundBankTest, ConvertsWidthsChannelsAndLevels) {
    constexpr double kStep = 1.0 / 32768.0;
    const double nan = std::numeric_limits<double>::quiet_NaN();
    using Values = std::vector<std::int16_t>;
    const struct {
        const char* name;
        int format;
        int channels;
        bool keep;
        std::vector<double> given;
        Values expected;
    } cases[] = {
        {"24.wav",
         SF_FORMAT_WAV | SF_FORMAT_PCM_24,
         1,
         false,
         {100.4 * kStep, -100.6 * kStep, -1.0},
         {100, -101, -32768}},
        {"float.wav",
         SF_FORMAT_WAV | SF_FORMAT_FLOAT,
         1,
         false,
         {1.0, -1.5, 7.0, nan, 0.5},
         {32767, -32768, 32767, 0, 16384}},
        {"mixed.wav",
         SF_FORMAT_WAV | SF_FORMAT_PCM_16,
         2,
         false,
         {0.5, -0.5, 0.25, 0.75, 1.0 - kStep, 1.0 - kStep},
         {0, 16384, 32767}},
        {"kept.wav",
         SF_FORMAT_WAV | SF_FORMAT_PCM_16,
         2,
         true,
         {0.5, -0.5, 0.25, 0.75},
         {16384, -16384, 8192, 24576}},
        {"three.aiff",
         SF_FORMAT_AIFF | SF_FORMAT_PCM_16,
         3,
         false,
         {0.75, 0.0, 0.0, -0.25, -0.25, -0.25},
         {8192, -8192}},
        {"a.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 1, false, {0.5, -0.125}, {16384, -4096}},
    };
    for (const auto& c : cases) {
        SoundFile sound = write(c.name, c.format, c.channels, c.given);
        sound.keepChannels = c.keep;
        const Samples* samples = load(sound);
        ASSERT_NE(samples, nullptr) << c.name << ": " << problems_.at(0).str();
        EXPECT_EQ(samples->channels, c.keep ? 2U : 1U);
        EXPECT_EQ(samples->values, c.expected) << c.name;
    }
}

TEST_F(SoundBankTest, DecodesLossySoundCloseToTheOriginal) {
    std::vector<double> values;
    for (int i = 0; i < 22050; ++i) {
        values.push_back(0.5 * std::sin(2.0 * std::numbers::pi * 441.0 * i / 44100.0));
    }
    const Samples* samples =
        load(write("a.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS, 1, values, 44100));
    ASSERT_NE(samples, nullptr);
    ASSERT_EQ(samples->values.size(), values.size());
    double square = 0.0;
    for (std::size_t i = 2000; i < 20000; ++i) {
        square += std::pow(samples->values[i] / 32768.0 - values[i], 2);
    }
    EXPECT_LT(std::sqrt(square / 18000), 0.01);
}

TEST_F(SoundBankTest, ReportsWhatCannotBeUsed) {
    std::ofstream(folder_.file("text.wav")) << "no sound at all, only a text of some length";
    std::ofstream(folder_.file("empty.wav"));
    const auto file = [&](const char* name) { return SoundFile{folder_.file(name), false}; };
    SoundFile three = write("three.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 3, {0.0, 0.0, 0.0});
    three.keepChannels = true;
    const struct {
        Sound sound;
        const char* part;
    } cases[] = {
        {file("gone.wav"), "gone.wav\" does not exist"},
        {SoundFile{"/dev/zero", false}, "is no regular file"},
        {file("text.wav"), "text.wav\" cannot be read: "},
        {file("empty.wav"), "empty.wav\" cannot be read: "},
        {write("none.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, {}), "holds no samples"},
        {write("slow.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, {0.0}, 7),
         "expected a sound of 1000 to 768000 samples a second, but "},
        {three, "expected a sound of 1 or 2 channels, but "},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(load(c.sound), nullptr);
        ASSERT_EQ(problems_.size(), 1U) << c.part;
        EXPECT_EQ(problems_[0].str().find("s.json:5: sources[0].file: expected "), 0U);
        EXPECT_NE(problems_[0].text.find(c.part), std::string::npos) << problems_[0].text;
    }
}

TEST_F(SoundBankTest, WholePeriodsOfAToneLoopWithoutAStep) {
    const Samples* samples = load(Tone{441.0, 0.5, 0.25});
    ASSERT_NE(samples, nullptr);
    const std::vector<std::int16_t>& v = samples->values;
    ASSERT_EQ(v.size(), 22050U);
    EXPECT_EQ(v[0], 0);
    EXPECT_EQ(v[25], 8192); // a quarter of the period of 100 samples
    for (std::size_t i = 0; i < v.size(); ++i) {
        ASSERT_EQ(v[i], v[i % 100]) << i; // the end is where the beginning continues
    }
}

TEST_F(SoundBankTest, TooMuchSoundInAllIsAProblem) {
    Scene scene;
    for (int i = 0; i < 3; ++i) { // 88200 bytes each
        Change change;
        change.sound = Tone{1.0 + i, 1.0, 0.5};
        change.soundWhere = {i, "timeline"};
        scene.timeline.push_back(change);
    }
    SoundBank small(200000);
    EXPECT_FALSE(small.load(scene, problems_));
    ASSERT_EQ(problems_.size(), 1U);
    EXPECT_EQ(problems_[0].line, 2);
    EXPECT_NE(problems_[0].text.find("1 GiB"), std::string::npos);
    EXPECT_NE(small.find(scene.timeline[1].sound), nullptr);
}
