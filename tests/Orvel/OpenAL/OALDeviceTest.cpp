// The default device. OpenAL chooses its driver once per process, so this program has one test.
#include "Sound.h"

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <stdlib.h>
#include <support/Capture.h>
#include <support/Loopback.h>
#include <support/RecordingBackend.h>
#include <support/TemporaryFolder.h>

namespace Orvel::Test {

TEST(OALDevice, TheWaveDriverWritesWhatIsHeardAndTheDestructorCompletesTheFile) {
    const TemporaryFolder folder;
    const std::string path = folder.file("out.wav");
    std::ofstream(folder.file("alsoft.conf"))
        << "[general]\nchannels=stereo\nfrequency=44100\nhrtf=false\n[wave]\nfile=" << path;
    setenv("ALSOFT_CONF", folder.file("alsoft.conf").c_str(), 1);
    setenv("ALSOFT_DRIVERS", "wave", 1);
    LogCapture log{Log::Level::Warning};
    OutputCapture errors{STDERR_FILENO};
    TidyWorld world;
    world.addBackend("default", nullptr);
    play(world, {-1, 0, 0}, tone(20.0, 500));
    const auto written = [&path] { return std::filesystem::file_size(path); };
    // The file lags by at most 2000 frames of 8 bytes; 13230 frames are 0.3 s.
    const std::size_t placed = written();
    ASSERT_TRUE(until([&] { return written() > placed + 8 * 13230; }, [] {}));
    world.deleteAllBackends();

    std::ifstream file(path, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    std::uint32_t size = 0;
    std::memcpy(&size, bytes.data() + 4, sizeof size);
    EXPECT_EQ(size, bytes.size() - 8) << "the file was not closed";
    const std::size_t header = bytes.find("data") + 8;
    ASSERT_LT(header, 200U);
    Stereo sound(2 * 4410);
    const std::size_t frame = (placed - header) / 8 + 6000;
    std::memcpy(sound.data(), bytes.data() + header + 8 * frame, 8 * 4410);
    EXPECT_GT(level(sound, 0), level(sound, 1) + 20.0);
    EXPECT_NEAR(level(sound, 0), -9.03, 0.2);
    EXPECT_EQ(log.take(), Calls());
    EXPECT_EQ(errors.take(), "Source::setData call\n");
}

} // namespace Orvel::Test
