// What is heard: the real OpenAL on a device that renders on demand.
#include "Sound.h"

#include <Orvel/BackendFactory.h>
#include <Orvel/Emitter.h>
#include <Orvel/OALLoopbackBackend.h>
#include <Orvel/Source.h>
#include <Orvel/World.h>

#include <functional>
#include <gtest/gtest.h>
#include <support/Capture.h>
#include <support/TemporaryFolder.h>

namespace Orvel::Test {

namespace {

using Lines = std::vector<std::string>;

/// A scene and an ear in it.
struct Room {
    explicit Room(const char* params = nullptr)
        : backend(std::make_unique<OALLoopbackBackend>(world, params)) {}
    Room(const Room&) = delete;
    Room& operator=(const Room&) = delete;
    ~Room() { world.clearWorld(); }

    Source*
    sound(double hertz, double seconds = 1.0, double lastHertz = 0.0, unsigned channels = 1) {
        Source* source = world.createSource();
        const auto data =
            tone(seconds, hertz, lastHertz > 0.0 ? lastHertz : hertz, 44100, channels);
        source->setData(44100, 16, channels, data.data(), static_cast<unsigned>(data.size()));
        return source;
    }
    Emitter* place(
        Source* source, const Vec3f& position, WorldPart::State state = WorldPart::PLAY,
        const std::vector<std::string>& labels = {}) {
        Emitter* emitter = world.createEmitter(labels);
        emitter->setTransform(&position, nullptr);
        emitter->setHull(1000, 1000, 1, 1);
        emitter->setSource(source);
        emitter->setState(state);
        return emitter;
    }
    Stereo hear(double seconds) {
        Stereo samples(2 * static_cast<std::size_t>(seconds * backend->rate()), 7.0F);
        EXPECT_TRUE(backend->render(samples.data(), static_cast<unsigned>(samples.size() / 2)));
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
    World world;
    std::unique_ptr<OALLoopbackBackend> backend;
};

bool isSilent(const Stereo& sound) {
    return std::all_of(sound.begin(), sound.end(), [](float sample) { return sample == 0.0F; });
}

const Vec3f kAhead{0, 0, -1};

} // namespace

TEST(OALLoopbackHearing, DirectionAndDistanceAreHeard) {
    Room room;
    Source* source = room.sound(500);
    source->setParam(true, 1.0F);
    Emitter* emitter = room.place(source, kAhead);
    const auto at = [&](const Vec3f& position) {
        emitter->setTransform(&position, nullptr);
        return room.levels();
    };
    const auto left = at({-1, 0, 0});
    EXPECT_GT(left.first, left.second + 20.0);
    const auto right = at({1, 0, 0});
    EXPECT_GT(right.second, right.first + 20.0);
    const auto behind = at({0, 0, 1});
    EXPECT_NEAR(behind.first, behind.second, 0.5);
    const auto near = at({0, 0, -2});
    const auto far = at({0, 0, -20});
    EXPECT_NEAR(near.first, near.second, 0.5);
    EXPECT_GT(near.first - far.first, 19.0);
    EXPECT_LT(near.first - far.first, 21.0);

    const float half = std::sqrt(0.5F);
    room.world.setListenerTransform({0, 0, -19}, {0, half, 0, half}); // faces left
    const auto turned = room.levels();
    EXPECT_GT(turned.second, turned.first + 20.0) << "what was ahead is now on the right";

    emitter->setParam(false, 0.0F, 0.5F);
    emitter->setHull(1000, 1000, 1, 1);
    const auto unplaced = at({-20, 0, 0});
    EXPECT_NEAR(unplaced.first, unplaced.second, 0.5);
    EXPECT_GT(unplaced.first, far.first + 10.0) << "unplaced sounds are not attenuated";
    EXPECT_EQ(room.log.take(), Lines());
}

TEST(OALLoopbackHearing, StereoSoundsAreNotPlaced) {
    Room room;
    room.place(room.sound(500, 1.0, 0.0, 2), {-20, 0, 0});
    const auto [left, right] = room.levels();
    EXPECT_NEAR(left, right, 0.1);
    EXPECT_NEAR(left, -9.03, 0.1) << "a full-length sine of peak 0.5";
}

TEST(OALLoopbackHearing, ADisabledWorldIsSilentUntilTheListenerMoves) {
    Room room;
    room.sound(500)->setParam(true, 1.0F);
    room.place(room.world.sources().begin()->second, kAhead);
    const double loud = room.levels().first;
    room.world.setEnabled(false);
    EXPECT_LT(room.levels().first, -150.0);
    room.world.setListenerTransform({0, 0.001F, 0}, {});
    EXPECT_NEAR(room.levels().first, loud, 0.5);
    room.world.setEnabled(false);
    EXPECT_LT(room.levels().first, -150.0);
    room.world.setEnabled(true);
    EXPECT_NEAR(room.levels().first, loud, 0.5);
}

TEST(OALLoopbackHearing, LabelsMuteWhatTheBackendDoesNotServe) {
    Room room("labels=front");
    Source* source = room.sound(500);
    Emitter* back = room.place(source, kAhead, WorldPart::PLAY, {"back"});
    EXPECT_TRUE(isSilent(room.hear(0.1)));
    delete back;
    room.place(source, kAhead, WorldPart::STOP, {"back", "front"})->setState(WorldPart::PLAY);
    EXPECT_GT(room.levels().first, -30.0);
}

TEST(OALLoopbackHearing, APausedSoundGoesOnWhereItStoppedAndAStoppedOneBeginsAnew) {
    // A glide, so that each moment differs from each other one.
    const auto restAfter = [](WorldPart::State interruption) {
        Room room;
        Emitter* emitter = room.place(room.sound(200, 2.0, 2000), {-1, 0, 0});
        room.hear(0.5);
        if (interruption != WorldPart::PLAY) {
            emitter->setState(interruption);
            EXPECT_TRUE(isSilent(room.hear(0.5)));
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
    Source* source = room.sound(500, 0.1);
    Emitter* emitter = room.place(source, {-1, 0, 0});
    Stereo sound = room.hear(0.3);
    EXPECT_FALSE(isSilent(Stereo(sound.begin() + 2 * 4400, sound.begin() + 2 * 4410)));
    EXPECT_TRUE(isSilent(Stereo(sound.begin() + 2 * 4410, sound.end())));
    source->setParam(true, 1.0F);
    emitter->setState(WorldPart::STOP);
    emitter->setState(WorldPart::PLAY);
    room.hear(0.05);
    sound = room.hear(1.0); // ten times round
    EXPECT_NEAR(level(sound, 0), -9.03, 0.1);
    const double steepest = 0.5 * 2.0 * std::numbers::pi * 500.0 / 44100.0;
    EXPECT_NEAR(static_cast<double>(greatestStep(sound)), steepest, steepest * 0.02);
}

TEST(OALLoopbackHearing, PitchMultipliesTheFrequency) {
    for (const char* params : {"rate=44100", "rate=22050"}) {
        Room room(params);
        Source* source = room.sound(400);
        source->setParam(true, 1.0F);
        room.place(source, kAhead);
        const auto heard = [&] { return frequency(room.hear(1.0), room.backend->rate()); };
        EXPECT_NEAR(heard(), 400, 2) << params;
        source->setParam(true, 2.0F);
        EXPECT_NEAR(heard(), 800, 2) << params;
        room.place(source, kAhead);
        source->setParam(true, 0.5F);
        EXPECT_NEAR(heard(), 200, 2) << params;
    }
}

TEST(OALLoopbackHearing, SoundsTheSameEachTimeAndBesideAnotherBackend) {
    const auto play = [](const std::function<void()>& meanwhile) {
        Room room;
        const Vec3f end{5, 0, -2};
        Emitter* emitter = room.place(room.sound(300, 1.0, 900), {-5, 1, -2});
        Stereo sound = room.hear(0.25);
        meanwhile();
        emitter->setTransform(&end, nullptr);
        meanwhile();
        const Stereo rest = room.hear(0.25);
        sound.insert(sound.end(), rest.begin(), rest.end());
        return sound;
    };
    const Stereo alone = play([] {});
    EXPECT_EQ(play([] {}), alone);
    // The other one's objects have the same names, and its end leaves no context current.
    auto other = std::make_unique<Room>("rate=8000");
    Source* source = other->sound(700);
    Emitter* emitter = other->place(source, {0, 0, -40});
    const Stereo beside = play([&] {
        if (other == nullptr) {
            return;
        }
        emitter->setParam(true, 0.0F, 0.1F);
        source->setParam(true, 3.0F);
        other->world.setListenerTransform({9, 9, 9}, {});
        EXPECT_FALSE(isSilent(other->hear(0.1)));
        other.reset();
    });
    EXPECT_EQ(beside, alone);
}

TEST(OALLoopbackBackend, EmittersBeyondTheLimitAreReportedAndTheOthersSound) {
    const Lines refusal{
        "FATAL: Cannot create emitter\n", "FATAL: OpenAL state machine error: Out of memory\n"};
    {
        Room room;
        for (int i = 0; i < 256; ++i) {
            room.world.createEmitter();
        }
        EXPECT_EQ(room.log.take(), Lines());
        Emitter* refused = room.place(room.sound(500), {-1, 0, 0});
        EXPECT_EQ(room.log.take(), refusal);
        EXPECT_TRUE(isSilent(room.hear(0.1)));
        delete refused;
        delete room.world.emitters().begin()->second;
        room.place(room.sound(500), {-1, 0, 0});
        EXPECT_GT(room.levels().first, -20.0);
        EXPECT_EQ(room.log.take(), Lines());
    }
    Room room("sources=300");
    for (int i = 0; i < 300; ++i) {
        room.world.createEmitter();
    }
    EXPECT_EQ(room.log.take(), Lines());
}

TEST(OALLoopbackBackend, NumbersOutsideTheirRangeGiveAWarningAndTheDefault) {
    for (const char* value :
         {"7999", "192001", "0", "-1", "44100.5", "4410O", "\" 8000\"", "\"\"", "99999999999999"}) {
        const Room room((std::string("rate=") + value).c_str());
        EXPECT_EQ(room.backend->rate(), 44100U) << value;
        const Lines lines = room.log.lines();
        ASSERT_EQ(lines.size(), 1U) << value;
        EXPECT_NE(lines[0].find("expected 8000 to 192000; 44100 is used\n"), std::string::npos);
    }
    for (const unsigned rate : {8000U, 192000U}) {
        Room room(("rate=" + std::to_string(rate)).c_str());
        room.place(room.sound(1000), kAhead);
        EXPECT_NEAR(frequency(room.hear(0.5), rate), 1000, 5);
        EXPECT_EQ(room.log.take(), Lines());
    }
}

TEST(OALLoopbackBackend, IsAKindOnlyOnceItIsAskedFor) {
    const LogCapture log;
    World world;
    const auto listed = [] {
        const Lines names = BackendFactory::names();
        return std::count(names.begin(), names.end(), "loopback");
    };
    EXPECT_EQ(listed(), 0);
    EXPECT_EQ(world.addBackend("loopback", nullptr), nullptr);
    BackendType* type = OALLoopbackBackend::registerType();
    EXPECT_EQ(OALLoopbackBackend::registerType(), type);
    EXPECT_EQ(listed(), 1);
    const Backend* backend = world.addBackend("loopback", "rate=48000");
    ASSERT_NE(dynamic_cast<const OALLoopbackBackend*>(backend), nullptr);
    world.deleteAllBackends();
}

TEST(OALLoopbackFiles, AreReadOrRefusedWithOneReason) {
    const TemporaryFolder folder;
    const std::string path = folder.file("sound.wav");
    const auto data = tone(0.5, 440, 440, 8000, 1); // 8000 bytes
    const std::string mode = "Unsupported mode within an otherwise usable file type";
    const std::string corrupt = "The sound data was corrupt or truncated";
    struct Row {
        const char* name;
        WavFile file;
        std::string reason;
        float duration;
    };
    const std::vector<Row> rows{
        {"16-bit mono", {1, 1, 8000, 16, data}, "", 0.5F},
        {"8-bit stereo", {1, 2, 8000, 8, data}, "", 0.5F},
        {"mu-law, made 16 bit", {7, 1, 8000, 8, data}, "", 1.0F},
        {"24 bit", {1, 1, 8000, 24, data}, mode, 0.0F},
        {"float", {3, 1, 8000, 32, data}, mode, 0.0F},
        {"A-law", {6, 1, 8000, 8, data}, mode, 0.0F},
        {"three channels", {1, 3, 8000, 16, data}, mode, 0.0F},
        {"extensible", {0xFFFE, 1, 8000, 16, data}, mode, 0.0F},
        {"cut short", {1, 1, 8000, 16, data, 9000}, corrupt, 0.0F},
        {"without a rate", {1, 1, 0, 16, data}, "", 0.0F},
        {"with a huge rate", {1, 1, 4000000000U, 16, data}, "", 0.0F}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        row.file.write(path);
        Room room;
        Source* source = room.world.createSource();
        source->setDataFromURL(path);
        EXPECT_FLOAT_EQ(source->duration(), row.duration);
        Lines expected{"LOG: loading: >file://" + path + "<\n"};
        if (!row.reason.empty()) {
            expected.emplace_back("FATAL: Unkown sound format: 0\n");
        }
        EXPECT_EQ(room.log.take(), expected);
        EXPECT_EQ(room.errors.take(), row.reason.empty() ? "" : "AOLError: " + row.reason + "\n");
        EXPECT_EQ(room.backend->checkALError(nullptr), row.reason.empty() && row.duration == 0.0F)
            << "a rate that AL refuses";
    }
}

TEST(OALLoopbackFiles, AreReadAfterAnotherBackendHasEndedALUT) {
    const TemporaryFolder folder;
    WavFile{1, 1, 8000, 16, tone(0.5, 440, 440, 8000, 1)}.write(folder.file("good.wav"));
    WavFile{1, 1, 8000, 24, {1, 2, 3}}.write(folder.file("bad.wav"));
    auto first = std::make_unique<Room>();
    Room second; // finds ALUT running, which ALUT takes for an error
    Source* source = second.world.createSource();
    source->setDataFromURL(folder.file("bad.wav"));
    EXPECT_EQ(
        second.errors.take(), "AOLError: Unsupported mode within an otherwise usable file type\n");
    first.reset();
    source->setDataFromURL(folder.file("good.wav"));
    EXPECT_FLOAT_EQ(source->duration(), 0.5F);
    second.place(source, {-1, 0, 0});
    EXPECT_NEAR(frequency(second.hear(0.25), 44100), 440, 8);
}

} // namespace Orvel::Test
