// The default device in its several conditions. OpenAL chooses its driver once in a process, so
// each test needs a process of its own, as ctest gives it.
#include "Sound.h"

#include <Orvel/Emitter.h>
#include <Orvel/OALBackend.h>
#include <Orvel/Source.h>
#include <Orvel/World.h>

#include <AL/alc.h>
#include <AL/alext.h>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <stdlib.h>
#include <support/Capture.h>
#include <support/TemporaryFolder.h>
#include <thread>

namespace Orvel::Test {

namespace {

using Lines = std::vector<std::string>;

class OALDevice : public testing::Test {
protected:
    ~OALDevice() override { world.clearWorld(); }

    /// Must come before the first back end.
    void configure(const std::string& driver, const std::string& settings = "") {
        static bool configured = false;
        ASSERT_FALSE(configured) << "run one of these tests in a process, as ctest does";
        configured = true;
        std::ofstream(folder.file("alsoft.conf"))
            << "[general]\nchannels=stereo\nfrequency=44100\nhrtf=false\n"
            << settings;
        setenv("ALSOFT_CONF", folder.file("alsoft.conf").c_str(), 1);
        setenv("ALSOFT_DRIVERS", driver.c_str(), 1);
    }
    /// A looped tone of 500 Hz and peak 0.5.
    Emitter* play(const Vec3f& position) {
        const auto data = tone(1.0, 500, 500, 44100, 1);
        Source* source = world.createSource();
        source->setData(44100, 16, 1, data.data(), static_cast<unsigned>(data.size()));
        source->setParam(true, 1.0F);
        Emitter* emitter = world.createEmitter();
        emitter->setTransform(&position, nullptr);
        emitter->setHull(100, 100, 1, 1);
        emitter->setSource(source);
        emitter->setState(WorldPart::PLAY);
        return emitter;
    }
    /// False when it has not come true within ten seconds.
    static bool await(const std::function<bool()>& condition) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!condition() && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return condition();
    }

    TemporaryFolder folder;
    LogCapture log{Log::Level::Warning};
    OutputCapture errors{STDERR_FILENO};
    World world;
};

constexpr std::size_t kFrame = 2 * sizeof(float);

/// The sound of a WAV file of 32-bit float stereo samples, checked for being one.
Stereo readWav(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    const auto number = [&bytes](std::size_t at) {
        std::uint32_t value = 0;
        std::memcpy(&value, bytes.data() + at, sizeof value);
        return value;
    };
    const std::size_t at = bytes.find("data");
    if (bytes.size() < 64 || at == std::string::npos || bytes.compare(8, 8, "WAVEfmt ") != 0) {
        ADD_FAILURE() << path << " is no WAV file";
        return {};
    }
    EXPECT_EQ(number(4), bytes.size() - 8) << "the file was not closed";
    EXPECT_EQ(number(22) & 0xFFFFU, 2U) << "channels";
    EXPECT_EQ(number(at + 4), bytes.size() - at - 8);
    Stereo sound((bytes.size() - at - 8) / sizeof(float));
    std::memcpy(sound.data(), bytes.data() + at + 8, sound.size() * sizeof(float));
    return sound;
}

} // namespace

TEST_F(OALDevice, TheWaveDriverWritesWhatIsHeardAndTheDestructorCompletesTheFile) {
    const std::string path = folder.file("out.wav");
    configure("wave", "[wave]\nfile=" + path + "\n");
    world.addBackend("default", nullptr);
    Emitter* emitter = play({-1, 0, 0});
    const auto written = [&path] { return std::filesystem::file_size(path) / kFrame; };
    // The file lags behind by at most 2000 frames; 13230 are 0.3 s.
    const std::size_t placed = written();
    ASSERT_TRUE(await([&] { return written() > placed + 13230; }));
    const Vec3f right{1, 0, 0};
    emitter->setTransform(&right, nullptr);
    const std::size_t moved = written();
    ASSERT_TRUE(await([&] { return written() > moved + 13230; }));
    world.deleteAllBackends();

    const Stereo sound = readWav(path);
    ASSERT_GT(sound.size(), 2 * (moved + 13000));
    const auto after = [&sound](std::size_t frame) {
        const auto begin = sound.begin() + static_cast<std::ptrdiff_t>(2 * (frame + 6000));
        return Stereo(begin, begin + static_cast<std::ptrdiff_t>(2 * 4410));
    };
    const Stereo heardFirst = after(placed);
    EXPECT_GT(level(heardFirst, 0), level(heardFirst, 1) + 20.0);
    EXPECT_NEAR(level(heardFirst, 0), -9.03, 0.2);
    const Stereo heardLast = after(moved);
    EXPECT_GT(level(heardLast, 1), level(heardLast, 0) + 20.0);
    EXPECT_EQ(log.take(), Lines());
    EXPECT_EQ(errors.take(), "Source::setData call\n");
}

TEST_F(OALDevice, WithoutADeviceTheBackendIsInertAndTheWorldGoesOn) {
    configure("none");
    auto* backend = dynamic_cast<OALBackend*>(world.addBackend("openal", nullptr));
    ASSERT_NE(backend, nullptr);
    EXPECT_FALSE(backend->working());
    EXPECT_EQ(log.take(), Lines{"FATAL: Open OpenAL device failed\n"});
    Emitter* emitter = play({0, 0, -1});
    emitter->source()->setDataFromURL(folder.file("missing.wav"));
    world.reset();
    world.deleteAllBackends();
    EXPECT_EQ(log.take(), Lines()) << "nothing is tried that would fail";
}

TEST_F(OALDevice, ADeviceLostWhilePlayingEndsCleanly) {
    configure("wave", "[wave]\nfile=/dev/full\n");
    world.addBackend("openal", nullptr);
    Emitter* emitter = play({-1, 0, 0});
    const auto connected = [] {
        ALCint answer = 1;
        alcGetIntegerv(alcGetContextsDevice(alcGetCurrentContext()), ALC_CONNECTED, 1, &answer);
        return answer != 0;
    };
    ASSERT_TRUE(await([&] { return !connected(); }));
    emitter->setState(WorldPart::PAUSE);
    emitter->setState(WorldPart::PLAY);
    play({1, 0, 0});
    world.setListenerTransform({1, 2, 3}, {});
    delete emitter;
    world.deleteAllBackends();
    EXPECT_EQ(log.take(), Lines());
    auto* again = dynamic_cast<OALBackend*>(world.addBackend("openal", nullptr));
    EXPECT_TRUE(again != nullptr && again->working()) << "a new one may try its luck";
    world.deleteAllBackends();
}

TEST_F(OALDevice, SourcesRunOutAndComeBack) {
    configure("null", "sources=4\n");
    world.addBackend("openal", nullptr);
    std::vector<Emitter*> emitters;
    for (int i = 0; i < 4; ++i) {
        emitters.push_back(play({0, 0, -1}));
    }
    EXPECT_EQ(log.take(), Lines());
    Emitter* refused = play({0, 0, -1});
    EXPECT_EQ(
        log.take(), (Lines{
                        "FATAL: Cannot create emitter\n",
                        "FATAL: OpenAL state machine error: Out of memory\n"}));
    delete refused;
    delete emitters.front();
    play({0, 0, -1});
    EXPECT_EQ(log.take(), Lines());
    world.deleteAllBackends();
}

} // namespace Orvel::Test
