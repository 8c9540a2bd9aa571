#include <Show/scene/SoundBank.h>

#include <Show/Render.h>
#include <Show/scene/SceneSources.h>

#include <Orvel/Diagnostic.h>
#include <Orvel/OwningWorld.h>
#include <Orvel/VoicesBackend.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <sndfile.h>
#include <support/TemporaryFolder.h>
#include <sys/stat.h>

using namespace Show;

namespace {

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr int kWav = SF_FORMAT_WAV;
constexpr int kWav16 = kWav | SF_FORMAT_PCM_16;
constexpr double kStep = 1.0 / 32768.0;

class SoundBankTest : public testing::Test {
protected:
    /// Writes a sound file with these interleaved samples.
    SoundFile
    write(const char* name, int format, int channels, const std::vector<double>& values, int rate) {
        const std::string path = folder_.file(name);
        SF_INFO info{0, rate, channels, format, 0, 0};
        SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
        sf_command(file, SFC_SET_CLIPPING, nullptr, SF_TRUE);
        sf_write_double(file, values.data(), static_cast<sf_count_t>(values.size()));
        sf_close(file);
        return {path, false};
    }

    Samples load(const Sound& sound) {
        Scene scene;
        scene.path = "s.json";
        scene.sources.resize(1);
        scene.sources[0].sound = sound;
        scene.sources[0].soundWhere = {5, "sources[0].file"};
        problems_.clear();
        const bool good = bank_.load(scene, problems_);
        EXPECT_EQ(good, problems_.empty());
        std::string fault;
        const Samples* samples = good ? bank_.decode(sound, fault) : nullptr;
        return samples == nullptr ? Samples{} : *samples;
    }

    Orvel::Test::TemporaryFolder folder_;
    SoundBank bank_;
    std::vector<Problem> problems_;
};

} // namespace

TEST_F(SoundBankTest, DecodesExactly) {
    const struct {
        const char* name;
        int format;
        int channels;
        std::vector<double> given;
        std::vector<std::int16_t> expected; // as many channels as given: kept, otherwise mixed
    } cases[] = {
        {"16", kWav16, 1, {-1.0, -kStep, 0.0, kStep, 1.0 - kStep}, {-32768, -1, 0, 1, 32767}},
        {"24", kWav | SF_FORMAT_PCM_24, 1, {100.4 * kStep, -100.6 * kStep}, {100, -101}},
        {"f", kWav | SF_FORMAT_FLOAT, 1, {1.0, -1.5, kNan, 0.5}, {32767, -32768, 0, 16384}},
        {"kept", kWav16, 2, {0.5, -0.5, 0.25, 0.75}, {16384, -16384, 8192, 24576}},
        {"mixed", kWav16, 2, {0.5, -0.5, 0.25, 0.75}, {0, 16384}},
        {"aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_16, 3, {0.75, 0.0, 0.0}, {8192}},
        {"flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 1, {0.5, -0.125}, {16384, -4096}},
    };
    for (const auto& c : cases) {
        SoundFile sound = write(c.name, c.format, c.channels, c.given, 44100);
        sound.keepChannels = c.given.size() == c.expected.size();
        const Samples samples = load(sound);
        EXPECT_EQ(samples.samples, c.expected) << c.name;
        EXPECT_EQ(samples.channels, sound.keepChannels ? static_cast<unsigned>(c.channels) : 1U);
        EXPECT_EQ(samples.rate, 44100U);
    }
    // Lossy, and longer than a block of the decoder.
    const Samples ogg = load(
        write("ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS, 1, std::vector<double>(22050, 0.25), 44100));
    ASSERT_EQ(ogg.samples.size(), 22050U);
    EXPECT_NEAR(ogg.samples[20000], 8192, 300);
}

TEST_F(SoundBankTest, ReportsWhatCannotBeUsed) {
    std::ofstream(folder_.file("text")) << "no sound at all, only a text of some length";
    ASSERT_EQ(::mkfifo(folder_.file("pipe").c_str(), 0600), 0);
    const std::pair<SoundFile, const char*> cases[] = {
        {{folder_.file("gone"), false}, "gone\" does not exist"},
        {{folder_.file("text"), false}, "text\" cannot be read: "},
        {{folder_.file("pipe"), false}, "pipe\" is not a regular file"}, // without a writer
        {write("none", kWav16, 1, {}, 8000), "contains no samples"},
        {write("slow", kWav16, 1, {0.0}, 7), "expected a sound of 1000 to 768000 samples a second"},
        {{write("three", kWav16, 3, {0.0, 0.0, 0.0}, 8000).path, true},
         "expected a sound of 1 or 2 channels, but "},
    };
    for (const auto& [sound, part] : cases) {
        EXPECT_TRUE(load(sound).samples.empty());
        const std::string problem = problems_.at(0).str();
        EXPECT_EQ(problem.find("s.json:5: sources[0].file: expected "), 0U) << problem;
        EXPECT_NE(problem.find(part), std::string::npos) << problem;
    }
}

TEST_F(SoundBankTest, TonesLoopWithoutAStepUntilThereIsTooMuchOfThem) {
    const std::vector<std::int16_t> v = load(Tone{441.0, 0.5, 0.25}).samples;
    ASSERT_EQ(v.size(), 22050U);
    EXPECT_EQ(v[25], 8192); // a quarter of the period of 100 samples
    for (std::size_t i = 0; i < v.size(); ++i) {
        ASSERT_EQ(v[i], v[i % 100]) << i; // the end continues at the beginning
    }
    bank_ = SoundBank(200000);
    EXPECT_EQ(load(Tone{1.0, 1.0, 0.5}).samples.size(), 44100U); // of two bytes each
    EXPECT_EQ(load(Tone{2.0, 1.0, 0.5}).samples.size(), 44100U);
    EXPECT_TRUE(load(Tone{3.0, 1.0, 0.5}).samples.empty());
    EXPECT_NE(problems_.at(0).str().find("1 GiB"), std::string::npos);
}

TEST_F(SoundBankTest, LongFilesAreReadWhilePlayingIfNothingNeedsSamples) {
    const std::vector<double> eleven(std::size_t{2} * 11 * 8000, 0.25);
    const SoundFile file = write("long", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 2, eleven, 8000);
    ASSERT_TRUE(load(file).samples.size() == eleven.size() / 2); // on demand
    Orvel::VoicesBackend::registerType();
    using Kind = Orvel::Source::DataKind;
    const struct {
        std::vector<const char*> kinds;
        LongFiles longFiles;
        Kind expected;
    } cases[] = {
        {{"voices", "silent"}, LongFiles::AsNeeded, Kind::URL_SD},
        {{"voices", "play"}, LongFiles::AsNeeded, Kind::PCM_SD},
        {{"silent"}, LongFiles::AsNeeded, Kind::PCM_SD},
        {{}, LongFiles::ByPath, Kind::URL_SD},
    };
    for (const auto& c : cases) {
        Orvel::OwningWorld<> world;
        for (const char* kind : c.kinds) {
            world.addBackend(kind, kind == std::string("voices") ? "offline=yes" : "");
        }
        Orvel::Source* source = world.createSource();
        giveSound(bank_, *source, file, c.longFiles);
        EXPECT_EQ(source->dataKind(), c.expected);
        EXPECT_EQ(
            source->urlChannels() == Orvel::SoundFile::Channels::Mono, c.expected == Kind::URL_SD);
    }
}

TEST_F(SoundBankTest, TheDamageOfALongFileIsReported) {
    std::vector<double> noise(std::size_t{11} * 8000);
    std::minstd_rand random;
    std::generate(noise.begin(), noise.end(), [&random] {
        return static_cast<double>(random() % 1000) / 2000.0;
    });
    const SoundFile file = write("cut", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 1, noise, 8000);
    std::filesystem::resize_file(file.path, std::filesystem::file_size(file.path) / 2);
    std::ofstream(folder_.file("s.json")) << R"({"orvel": 1, "sources": [{"id": 1, "file": "cut"}],
               "emitters": [{"id": 1, "source": 1, "state": "play"}]})";
    const ShowFile scene = ShowFile::load(folder_.file("s.json"));
    ASSERT_TRUE(scene.isGood());
    EXPECT_NE(scene.check().warnings.at(0).str().find("cut\" "), std::string::npos);
    std::vector<std::string> found;
    Orvel::setDiagnosticSink([&](const Orvel::Diagnostic& diagnostic) {
        found.push_back(scene.nameOf(diagnostic.part) + ": " + diagnostic.text);
        return true;
    });
    render(scene, [](std::span<const float>) { return true; });
    Orvel::setDiagnosticSink({});
    const auto damaged = [](const std::string& text) {
        return text.find("is silent") != text.npos;
    };
    ASSERT_EQ(std::ranges::count_if(found, damaged), 1);
    EXPECT_TRUE(std::ranges::find_if(found, damaged)->starts_with(folder_.file("s.json") + ":1"));
}
