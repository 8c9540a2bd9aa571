// What is heard: the real OpenAL on a device that renders on demand.
#include "Sound.h"

#include <Orvel/OALLoopbackBackend.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <support/Capture.h>
#include <support/RecordingBackend.h>
#include <support/TemporaryFolder.h>

namespace Orvel::Test {

namespace {

using Lines = std::vector<std::string>;

/// A scene and an ear in it.
struct Room {
    explicit Room(const char* params = nullptr) : ear(new OALLoopbackBackend(world, params)) {}

    Stereo hear(double seconds) {
        Stereo samples(2 * static_cast<std::size_t>(seconds * ear->rate()), 7.0F);
        EXPECT_TRUE(ear->render(samples.data(), static_cast<unsigned>(samples.size() / 2)));
        return samples;
    }
    /// The levels left and right, once a change has settled.
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
    Emitter* emitter = play(room.world, kAhead, tone(1.0, 500, 500));
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

    room.world.setEnabled(false);
    EXPECT_LT(room.levels().second, -150.0);
    room.world.setListenerTransform({0, 0, -19.01F}, {0, half, 0, half}); // hears again
    EXPECT_NEAR(room.levels().second, turned.second, 0.5);
}

TEST(OALLoopbackHearing, LabelsMuteWhatTheBackendDoesNotServeAndStereoIsNotPlaced) {
    Room room("labels=front");
    play(room.world, kAhead, tone(1.0, 500, 500), {"back"});
    EXPECT_EQ(room.levels().first, -200.0);
    play(room.world, {-20, 0, 0}, tone(1.0, 500, 500), {"back", "front"}, 2);
    const auto [left, right] = room.levels();
    EXPECT_NEAR(left, right, 0.1);
    EXPECT_NEAR(left, -9.03, 0.1) << "a full-length sine of peak 0.5";
}

TEST(OALLoopbackHearing, APausedSoundGoesOnWhereItStoppedAndAStoppedOneBeginsAnew) {
    // A glide, so that each moment differs from each other one.
    const auto restAfter = [](WorldPart::State interruption) {
        Room room;
        Emitter* emitter = play(room.world, {-1, 0, 0}, tone(2.0, 200, 2000));
        room.hear(0.5);
        if (interruption != WorldPart::PLAY) {
            emitter->setState(interruption);
            EXPECT_EQ(level(room.hear(0.5), 0), -200.0);
            emitter->setState(WorldPart::PLAY);
        }
        return room.hear(0.5);
    };
    const Stereo uninterrupted = restAfter(WorldPart::PLAY);
    EXPECT_NEAR(frequency(uninterrupted, 44100), 875, 10);
    EXPECT_EQ(restAfter(WorldPart::PAUSE), uninterrupted);
    EXPECT_NEAR(frequency(restAfter(WorldPart::STOP), 44100), 425, 10);
}

TEST(OALLoopbackHearing, LoopsAreSeamlessAndOneShotsEnd) {
    Room room;
    Emitter* emitter = play(room.world, {-1, 0, 0}, tone(0.1, 500, 500));
    EXPECT_GT(level(room.hear(0.09), 0), -20.0);
    room.hear(0.02);
    EXPECT_EQ(level(room.hear(0.1), 0), -200.0);
    emitter->source()->setParam(true, 1.0F);
    emitter->setState(WorldPart::STOP);
    emitter->setState(WorldPart::PLAY);
    room.hear(0.05);
    const Stereo sound = room.hear(1.0); // ten times round
    EXPECT_NEAR(level(sound, 0), -9.03, 0.1);
    float difference = 0.0F;
    for (std::size_t i = 882; i < sound.size(); i += 2) {
        difference = std::max(difference, std::abs(sound[i] - sound[i - 882]));
    }
    EXPECT_LT(difference, 0.001F) << "five cycles later it is the same, also across a seam";
}

TEST(OALLoopbackHearing, PitchMultipliesTheFrequencyOfAllEmitters) {
    for (const char* params : {"rate=8000", "rate=192000"}) {
        Room room(params);
        Source* source = play(room.world, kAhead, tone(1.0, 400, 400))->source();
        source->setParam(true, 2.0F);
        const auto heard = [&] { return frequency(room.hear(1.0), room.ear->rate()); };
        EXPECT_NEAR(heard(), 800, 4) << params;
        Emitter* another = room.world.createEmitter();
        another->setSource(source);
        another->setState(WorldPart::PLAY);
        source->setParam(true, 0.5F);
        EXPECT_NEAR(heard(), 200, 4) << params;
        EXPECT_EQ(room.log.take(), Lines());
    }
}

TEST(OALLoopbackBackend, NumbersOutsideTheirRangeGiveAWarningAndTheDefault) {
    for (const char* value :
         {"7999", "192001", "-1", "44100.5", "4410O", "\"\"", "99999999999999"}) {
        const Room room((std::string("rate=") + value).c_str());
        EXPECT_EQ(room.ear->rate(), 44100U) << value;
        EXPECT_TRUE(room.log.lines().at(0).ends_with("8000 to 192000; 44100 is used\n")) << value;
    }
}

TEST(OALLoopbackFiles, AreReadOrRefusedWithOneReason) {
    const TemporaryFolder folder;
    const std::string path = folder.file("sound.wav");
    const std::vector<unsigned char> data(8000);
    const std::string mode = "AOLError: Unsupported mode within an otherwise usable file type\n";
    const struct {
        char formatTag;
        unsigned channels, rate, bits, length;
        std::string reason;
        float duration;
    } rows[] = {
        {1, 1, 8000, 16, 8044, "", 0.5F},
        {7, 1, 8000, 8, 8044, "", 1.0F}, // mu-law, made 16 bit
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
        source->setDataFromURL(path);
        const std::string trace = testing::PrintToString(&row - rows);
        EXPECT_FLOAT_EQ(source->duration(), row.duration) << trace;
        EXPECT_EQ(room.errors.take(), row.reason) << trace;
        const bool refusedByAL = row.reason.empty() && row.duration == 0.0F; // for the rate
        EXPECT_EQ(room.ear->checkALError(nullptr), refusedByAL) << trace;
    }
}

} // namespace Orvel::Test
