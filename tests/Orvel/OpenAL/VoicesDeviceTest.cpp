// The kind "voices" on a device that comes late and is lost. OpenAL chooses its driver once per
// process, so this program has one test.
#include "Sound.h"

#include <Orvel/BackendState.h>
#include <Orvel/VoicesBackend.h>

#include <chrono>
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

TEST(VoicesDevice, ComesLateIsLostAndComesBackWithEverySoundAtItsPlace) {
    using Clock = std::chrono::steady_clock;
    const TemporaryFolder folder;
    const std::filesystem::path place = folder.file("device");
    const std::string path = place / "out.wav";
    std::ofstream(folder.file("alsoft.conf"))
        << "[general]\nchannels=quad\nfrequency=44100\nhrtf=false\n[wave]\nfile=" << path;
    setenv("ALSOFT_CONF", folder.file("alsoft.conf").c_str(), 1);
    setenv("ALSOFT_DRIVERS", "wave", 1);
    setenv("ALSOFT_LOGLEVEL", "0", 1);
    LogCapture log{Log::Level::Warning};
    OutputCapture errors{STDERR_FILENO};
    TidyWorld world;
    auto* ear = new VoicesBackend(world, "latency=15 output=stereo");
    const auto [longTone, shortTone] = std::pair(tone(30.0, 500), tone(0.5, 500));
    const auto begin = Clock::now();
    Emitter* emitter = play(world, {-1, 0, 0}, longTone); // it is streamed
    play(world, {-1, 0, 0}, shortTone);
    std::size_t ended = 0;
    ear->setEndedHandler([&](Emitter&) { ++ended; });
    const auto reaches = [&](auto condition) { return until(condition, [&] { world.update(); }); };
    EXPECT_TRUE(reaches([&] { return !ear->state().working; })) << "its folder is missing";
    EXPECT_TRUE(reaches([&] { return ended == 1; })) << "the time passes without a device";

    std::filesystem::create_directory(place);
    std::filesystem::create_symlink("/dev/full", path); // is lost at once
    EXPECT_TRUE(reaches([&] { return ear->state().working; }));
    EXPECT_EQ(ear->state().device, "Wave File Writer");
    EXPECT_TRUE(reaches([&] { return !ear->state().working; }));
    std::filesystem::remove(path);
    constexpr std::size_t kEnough = 8 * 26460; // bytes of 0.6 s
    EXPECT_TRUE(reaches([&] {
        std::error_code none;
        return std::filesystem::is_regular_file(path) &&
               std::filesystem::file_size(path, none) > kEnough;
    }));
    const std::chrono::duration<double> passed = Clock::now() - begin;
    EXPECT_NEAR(*ear->playPosition(*emitter), passed.count(), 0.5);
    EXPECT_EQ(ear->state().voicesUsed, 1U);
    EXPECT_EQ(ear->state().streams, 1U);
    EXPECT_EQ(ear->state().gaps, 0U);
    // Two short sounds, of which the second is to begin 777 frames after the first.
    const FrameClock clock = ear->frameClock();
    EXPECT_TRUE(clock.hasDevice);
    EXPECT_LT(clock.latency, std::chrono::milliseconds(15)) << "46 ms without the parameter";
    EXPECT_EQ(getenv("ALSOFT_CONF"), folder.file("alsoft.conf"));
    EXPECT_NEAR(clock.frameAt(clock.timeOf(1e6)), 1e6, 0.001);
    EXPECT_NEAR(clock.rate, 44100.0, 2000.0);
    EXPECT_LT(static_cast<double>(clock.mixed) - clock.frameAt(Clock::now()), 22050.0);
    for (const int later : {0, 777}) {
        ear->setStartFrame(clock.soonest + 4410 + later);
        play(world, {1, 0, 0}, tone(0.005, 1000));
    }
    EXPECT_TRUE(reaches([&] { return ended == 3; }));
    EXPECT_TRUE(reaches([&] { return ear->frameClock().mixed > clock.soonest + 4410 + 4096; }));
    world.deleteAllBackends();

    std::ifstream file(path, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    Stereo sound(2 * 4410);
    std::memcpy(sound.data(), bytes.data() + bytes.find("data") + 8 + 8 * 19845, 8 * 4410);
    EXPECT_NEAR(level(sound, 0), -9.03, 0.2);
    EXPECT_EQ(level(sound, 1), -200.0);
    sound.resize((bytes.size() - bytes.find("data") - 8) / 8 * 2);
    std::memcpy(sound.data(), bytes.data() + bytes.find("data") + 8, sound.size() * sizeof(float));
    std::vector<std::size_t> onsets; // on the right
    for (std::size_t i = 1; i < sound.size(); i += 2) {
        if (sound[i] != 0.0F && (onsets.empty() || i / 2 > onsets.back() + 300)) {
            onsets.push_back(i / 2);
        }
    }
    ASSERT_EQ(onsets.size(), 2U);
    EXPECT_EQ(onsets[1] - onsets[0], 777U);
    EXPECT_EQ(log.take().size(), 2U) << "one line for the absence, one for the loss";
}

} // namespace Orvel::Test
