// The audible result, with the real OpenAL on a loopback device.
#include "Sound.h"

#include <Orvel/OALLoopbackBackend.h>

#include <AL/alut.h>

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <support/Capture.h>
#include <support/RecordingBackend.h>
#include <support/TemporaryFolder.h>

namespace Orvel::Test {

namespace {

using Lines = std::vector<std::string>;

/// A scene and a loopback back end that renders it.
struct Room {
    explicit Room(const char* params = nullptr) : ear(new OALLoopbackBackend(world, params)) {}

    Stereo hear(double seconds) {
        Stereo samples(2 * static_cast<std::size_t>(seconds * ear->rate()), 7.0F);
        EXPECT_TRUE(ear->render(samples.data(), static_cast<unsigned>(samples.size() / 2)));
        return samples;
    }
    /// The levels left and right after a change has settled.
    std::pair<double, double> levels() {
        hear(0.1);
        const Stereo sound = hear(0.25);
        return {level(sound, 0), level(sound, 1)};
    }

    LogCapture log{Log::Level::Warning};
    OutputCapture errors{STDERR_FILENO};
    TidyWorld world;
    OALLoopbackBackend* ear;
};

const Vec3f kAhead{0, 0, -1};

} // namespace

TEST(OALLoopbackHearing, DirectionAndDistanceAreHeard) {
    Room room;
    Emitter* emitter = play(room.world, kAhead, tone(1.0, 500));
    emitter->source()->setParam(true, 1.0F);
    const auto at = [&](const Vec3f& position) {
        emitter->setTransform(&position, nullptr);
        return room.levels();
    };
    const auto left = at({-1, 0, 0});
    EXPECT_GT(left.first, left.second + 20.0);
    const auto right = at({1, 0, 0});
    EXPECT_GT(right.second, right.first + 20.0);
    const auto near = at({0, 0, -2});
    const auto far = at({0, 0, -20});
    EXPECT_NEAR(near.first, near.second, 0.5);
    EXPECT_NEAR(near.first - far.first, 20.0, 1.0);

    const float half = std::sqrt(0.5F);
    room.world.setListenerTransform({0, 0, -19}, {0, half, 0, half}); // faces left
    const auto turned = room.levels();
    EXPECT_GT(turned.second, turned.first + 20.0) << "what was ahead is now on the right";
}

TEST(OALLoopbackHearing, StereoIsNotPlaced) {
    Room room;
    play(room.world, {-20, 0, 0}, tone(1.0, 500), 2);
    const auto [left, right] = room.levels();
    EXPECT_NEAR(left, right, 0.1);
    EXPECT_NEAR(left, -9.03, 0.1) << "a full-length sine of peak 0.5";
}

TEST(OALLoopbackHearing, SeveralBackendsKeepToTheirOwnContexts) {
    Room rooms[2]; // whose AL objects have the same names
    Emitter* emitters[2] = {};
    for (int i : {0, 1}) {
        emitters[i] = play(rooms[i].world, {-1, 0, 0}, tone(5.0, 500));
    }
    const Vec3f right{1, 0, 0};
    emitters[0]->setTransform(&right, nullptr); // while the other context is current
    const auto there = rooms[0].levels();
    const auto here = rooms[1].levels();
    EXPECT_GT(there.second, there.first + 20.0);
    EXPECT_GT(here.first, here.second + 20.0);
    rooms[0].ear->resetBackend();
    EXPECT_EQ(rooms[0].levels().second, -200.0);
    EXPECT_NEAR(rooms[1].levels().first, here.first, 0.1);
}

TEST(OALLoopbackBackend, NumbersOutsideTheirRangeGiveAWarningAndTheDefault) {
    for (const char* value :
         {"7999", "192001", "-1", "44100.5", "4410O", "\"\"", "99999999999999"}) {
        const Room room((std::string("rate=") + value).c_str());
        EXPECT_EQ(room.ear->rate(), 44100U) << value;
        EXPECT_TRUE(room.log.lines().at(0).ends_with("8000 to 192000; using 44100\n")) << value;
    }
    Room large("sources=300");
    for (int i = 0; i < 300; ++i) {
        large.world.createEmitter();
    }
    EXPECT_EQ(large.log.take(), Lines());
    large.world.createEmitter();
    EXPECT_EQ(large.log.take().at(0), "FATAL: Cannot create emitter\n");
}

TEST(OALLoopbackFiles, AreReadOrRefusedWithOneReason) {
    const TemporaryFolder folder;
    const std::string path = folder.file("sound.wav");
    const std::string loading = "LOG: loading: >file://" + path + "<\n";
    const std::vector<unsigned char> data(8000);
    const std::string mode = "AOLError: Unsupported mode within an otherwise usable file type\n";
    const struct {
        char formatTag;
        unsigned channels, rate, bits, length;
        std::string reason;
        float duration;
    } rows[] = {
        {1, 1, 8000, 16, 8044, "", 0.5F},
        {7, 1, 8000, 8, 8044, "", 1.0F}, // mu-law, decoded to 16 bit
        {1, 1, 8000, 24, 8044, mode, 0.0F},
        {3, 1, 8000, 32, 8044, mode, 0.0F}, // float
        {1, 1, 8000, 16, 8000, "AOLError: The sound data was corrupt or truncated\n", 0.0F},
        {1, 1, 4000000000U, 16, 8044, "", 0.0F}};
    for (const auto& row : rows) {
        TidyWorld elsewhere;
        Source* written = elsewhere.createSource();
        written->setData(row.rate, row.bits, row.channels, data.data(), 8000);
        written->dumpWavFile(path);
        std::fstream(path).seekp(20).put(row.formatTag);
        std::filesystem::resize_file(path, row.length);
        Room room;
        Source* source = room.world.createSource();
        alutExit(); // by another user
        alutExit(); // leaves an error unread
        source->setDataFromURL(path);
        const std::string trace = testing::PrintToString(&row - rows);
        EXPECT_FLOAT_EQ(source->duration(), row.duration) << trace;
        EXPECT_EQ(room.errors.take(), row.reason) << trace;
        const bool refusedByAL = row.reason.empty() && row.duration == 0.0F; // because of its rate
        const char* unknown = "FATAL: Unkown sound format: 0\n";
        EXPECT_EQ(room.log.take().back(), row.reason.empty() ? loading : unknown) << trace;
        EXPECT_EQ(OALBackend::reportRefusedSound(*source), refusedByAL) << trace;
    }
}

} // namespace Orvel::Test
