// The default device in its several conditions. OpenAL chooses its driver once in a process, so
// each test needs a process of its own, as ctest gives it.
#include "Sound.h"

#include <chrono>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <stdlib.h>
#include <support/Capture.h>
#include <support/RecordingBackend.h>
#include <support/TemporaryFolder.h>
#include <thread>

namespace Orvel::Test {

namespace {

using Lines = std::vector<std::string>;

class OALDevice : public testing::Test {
protected:
    /// Must come before the first back end.
    void configure(const std::string& driver, const std::string& waveFile = "") {
        static bool configured = false;
        ASSERT_FALSE(configured) << "run one of these tests in a process, as ctest does";
        configured = true;
        std::ofstream(folder.file("alsoft.conf"))
            << "[general]\nchannels=stereo\nfrequency=44100\nhrtf=false\n[wave]\nfile=" << waveFile;
        setenv("ALSOFT_CONF", folder.file("alsoft.conf").c_str(), 1);
        setenv("ALSOFT_DRIVERS", driver.c_str(), 1);
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
    TidyWorld world;
};

} // namespace

TEST_F(OALDevice, TheWaveDriverWritesWhatIsHeardAndTheDestructorCompletesTheFile) {
    const std::string path = folder.file("out.wav");
    configure("wave", path);
    world.addBackend("default", nullptr);
    Emitter* emitter = play(world, {-1, 0, 0}, tone(20.0, 500, 500));
    const auto written = [&path] { return std::filesystem::file_size(path); };
    // The file lags behind by at most 2000 frames of 8 bytes; 13230 frames are 0.3 s.
    const std::size_t placed = written();
    ASSERT_TRUE(await([&] { return written() > placed + 8 * 13230; }));
    const Vec3f right{1, 0, 0};
    emitter->setTransform(&right, nullptr);
    const std::size_t moved = written();
    ASSERT_TRUE(await([&] { return written() > moved + 8 * 13230; }));
    world.deleteAllBackends();

    std::ifstream file(path, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    std::uint32_t size = 0;
    std::memcpy(&size, bytes.data() + 4, sizeof size);
    EXPECT_EQ(size, bytes.size() - 8) << "the file was not closed";
    const std::size_t header = bytes.find("data") + 8;
    ASSERT_LT(header, 200U);
    const auto after = [&](std::size_t time) {
        Stereo sound(2 * 4410);
        const std::size_t frame = (time - header) / 8 + 6000;
        std::memcpy(sound.data(), bytes.data() + header + 8 * frame, 8 * 4410);
        return sound;
    };
    EXPECT_GT(level(after(placed), 0), level(after(placed), 1) + 20.0);
    EXPECT_NEAR(level(after(placed), 0), -9.03, 0.2);
    EXPECT_GT(level(after(moved), 1), level(after(moved), 0) + 20.0);
    EXPECT_EQ(log.take(), Lines());
    EXPECT_EQ(errors.take(), "Source::setData call\n");
}

TEST_F(OALDevice, WithoutADeviceTheBackendIsInertAndTheWorldGoesOn) {
    configure("none");
    world.addBackend("openal", nullptr);
    EXPECT_EQ(log.take(), Lines{"FATAL: Open OpenAL device failed\n"});
    play(world, {0, 0, -1}, tone(1.0, 500, 500))->source()->setDataFromURL("missing.wav");
    world.reset();
    world.deleteAllBackends();
    EXPECT_EQ(log.take(), Lines()) << "nothing is tried that would fail";
}

} // namespace Orvel::Test
