#include "ScenePlayer.h"

#include <Orvel/Emitter.h>
#include <Orvel/OALLoopbackBackend.h>
#include <Orvel/Source.h>

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <support/Capture.h>
#include <support/RecordingBackend.h>
#include <unistd.h>

using namespace OrvelTool;
using Orvel::Test::Calls;

namespace {

/// A scene from text, with its player, world and a back end that records.
class Stage {
public:
    explicit Stage(const std::string& parts) {
        std::vector<Problem> problems;
        scene_ = parseScene("{\"orvel\":1," + parts + "}", "s.json", problems).value_or(Scene{});
        sounds_.load(scene_, problems);
        for (const Problem& problem : problems) {
            ADD_FAILURE() << problem.str();
        }
        player.emplace(scene_, sounds_, world);
        player->start();
    }

    Orvel::Emitter& emitter(int id) { return *world.getEmitter(id); }
    Orvel::Source& source(int id) { return *world.getSource(id); }
    Calls advance(double seconds) {
        recorder.take();
        player->advance(seconds);
        return recorder.take();
    }

    Orvel::Test::TidyWorld world;
    Orvel::Test::RecordingBackend& recorder = *new Orvel::Test::RecordingBackend(world);
    std::optional<ScenePlayer> player;

private:
    Scene scene_;
    SoundBank sounds_;
};

const std::string kParts = R"("sources":[{"id":1,"tone":{"seconds":2}},{"id":2,"tone":{}}],
    "emitters":[{"id":11,"source":1,"position":[1,0,0]},{"id":12,"source":1}],)";

std::string timeline(const std::string& entries) {
    return kParts + "\"timeline\":[" + entries + "]";
}

std::size_t count(const Calls& calls, const std::string& call) {
    return static_cast<std::size_t>(std::count(calls.begin(), calls.end(), call));
}

constexpr double kNever = std::numeric_limits<double>::infinity();

} // namespace

TEST(ScenePlayer, RampsStartFromTheValueOfTheMomentAndAreReplaced) {
    Stage stage(timeline(R"(
        {"at":1,"emitter":11,"position":[5,0,0],"gain":0,"over":4},
        {"at":3,"emitter":11,"position":[3,2,0],"over":2},
        {"at":4,"emitter":11,"position":[0,0,0]},
        {"at":1,"source":1,"pitch":2,"over":1},
        {"at":1,"emitter":11,"hull":{"maxBack":30},"over":1},
        {"at":1.5,"emitter":11,"hull":{"maxFront":40}})"));
    const struct {
        double at;
        float x, y, gain, pitch, maxBack, maxFront;
    } rows[] = {
        {0.5, 1, 0, 1.0F, 1.0F, 10, 10},          {1.0, 1, 0, 1.0F, 1.0F, 10, 10},
        {1.25, 1.25F, 0, 0.9375F, 1.25F, 15, 10}, {2.0, 2, 0, 0.75F, 2.0F, 30, 40},
        {3.0, 3, 0, 0.5F, 2.0F, 30, 40},          {3.5, 3, 0.5F, 0.375F, 2.0F, 30, 40},
        {4.0, 0, 0, 0.25F, 2.0F, 30, 40},         {5.0, 0, 0, 0.0F, 2.0F, 30, 40},
    };
    for (const auto& row : rows) {
        stage.player->advance(row.at);
        const Orvel::Emitter& e = stage.emitter(11);
        EXPECT_EQ(e.position(), (Orvel::Vec3f{row.x, row.y, 0})) << row.at;
        EXPECT_EQ(e.gain(), row.gain) << row.at;
        EXPECT_EQ(stage.source(1).pitch(), row.pitch) << row.at;
        EXPECT_EQ(e.maxBack(), row.maxBack) << row.at;
        EXPECT_EQ(e.maxFront(), row.maxFront) << row.at;
    }
    EXPECT_FALSE(stage.player->moving());
    EXPECT_EQ(stage.advance(6), Calls{});
}

TEST(ScenePlayer, AStepOverEverythingEndsWhereSmallStepsDo) {
    const std::string scene = timeline(R"(
        {"at":0,"emitter":11,"position":[9,0,0],"over":2},
        {"at":1,"emitter":11,"position":[5,4,0],"over":3},
        {"at":2,"emitter":12,"destroy":true},
        {"at":3,"emitter":12,"create":true,"position":[7,0,0]},
        {"at":1,"emitter":12,"gain":0,"over":9})");
    Stage once(scene);
    once.player->advance(20);
    Stage often(scene);
    for (int i = 0; i <= 2000; ++i) {
        often.player->advance(i * 0.01);
    }
    for (Stage* stage : {&once, &often}) {
        EXPECT_EQ(stage->emitter(11).position(), (Orvel::Vec3f{5, 4, 0}));
        EXPECT_EQ(stage->emitter(12).position(), (Orvel::Vec3f{7, 0, 0}));
        EXPECT_EQ(stage->emitter(12).gain(), 1.0F) << "a ramp outlived its emitter";
    }
}

TEST(ScenePlayer, RotationsTurnEvenlyTheShorterWay) {
    // From no rotation to -90 degrees about y, given as the quaternion of the longer way.
    Stage stage(
        timeline(R"({"at":0,"listener":true,"rotation":[0,0.70710678,0,-0.70710678],"over":3})"));
    for (const double degrees : {0.0, 30.0, 45.0, 60.0, 89.0}) {
        stage.player->advance(degrees / 30.0);
        const Orvel::Vec3f ahead = stage.world.listenerRotation().rotate({0, 0, -1});
        EXPECT_NEAR(std::atan2(double{ahead.x}, -double{ahead.z}) * 180.0 / M_PI, degrees, 1e-3);
    }
}

TEST(ScenePlayer, NextChangeNamesEntriesAndRampEnds) {
    Stage stage(timeline(R"({"at":1,"emitter":11,"gain":0,"over":0.5},
                            {"at":1.25,"source":1,"pitch":2,"over":4},
                            {"at":2,"source":1,"pitch":1})"));
    std::vector<double> moments;
    for (double now = 0.0; (now = stage.player->nextChange(now)) < kNever;) {
        moments.push_back(now);
        stage.player->advance(now);
    }
    EXPECT_EQ(moments, (std::vector<double>{1, 1.25, 1.5, 2})); // 5.25 was replaced
}

TEST(ScenePlayer, ADisabledWorldStaysSilentWhenTheListenerMoves) {
    Stage stage(timeline(R"({"at":1,"world":true,"enabled":false},
                            {"at":2,"listener":true,"position":[1,0,0]},
                            {"at":3,"listener":true,"position":[2,0,0],"over":1})"));
    stage.player->advance(1);
    EXPECT_EQ(stage.advance(2), (Calls{"setListenerTransform", "setEnabled"}));
    EXPECT_EQ(stage.advance(3.5), (Calls{"setListenerTransform", "setEnabled"}));
    EXPECT_FALSE(stage.world.enabled());
    stage.player->start();
    EXPECT_TRUE(stage.world.enabled());
    EXPECT_EQ(stage.world.listenerPosition(), Orvel::Vec3f{});
}

TEST(ScenePlayer, SendsAnewWhatIsPlacedOtherwise) {
    Stage stage(timeline(R"({"at":1,"emitter":12,"spatial":false},
                            {"at":2,"world":true,"spatialize":false})"));
    EXPECT_EQ(
        stage.advance(1),
        (Calls{"setEmitterParam 12", "setEmitterTransform 12", "setEmitterHull 12"}));
    EXPECT_EQ(
        stage.advance(2), (Calls{
                              "setEmitterTransform 11", "setEmitterHull 11",
                              "setEmitterTransform 12", "setEmitterHull 12"}));
}

TEST(ScenePlayer, AConnectedEmitterGoesOnPlayingAndDisturbsNoOther) {
    Stage stage(timeline(R"({"at":0,"emitter":11,"state":"play"},
                            {"at":1,"emitter":11,"connect":2},
                            {"at":2,"emitter":11,"connect":1},
                            {"at":3,"emitter":11,"connect":1},
                            {"at":4,"emitter":11,"connect":null})"));
    EXPECT_EQ(stage.emitter(12).state(), Orvel::WorldPart::PLAY) << "it shares the source";
    Calls calls = stage.advance(1);
    ASSERT_GE(calls.size(), 3U);
    EXPECT_EQ(count(calls, "setEmitterState 12"), 0U);
    EXPECT_EQ(stage.emitter(11).source(), &stage.source(2));
    EXPECT_EQ(stage.source(2).state(), Orvel::WorldPart::PLAY);
    EXPECT_LT(
        std::find(calls.begin(), calls.end(), "setEmitterConnection 11"),
        std::find(calls.rbegin(), calls.rend(), "setEmitterState 11").base() - 1);
    calls = stage.advance(2);
    EXPECT_EQ(count(calls, "setEmitterState 12"), 0U);
    EXPECT_EQ(count(calls, "setEmitterState 11"), 2U);
    EXPECT_EQ(stage.advance(3), Calls{}) << "connected already";
    EXPECT_EQ(stage.advance(4), Calls{"setEmitterConnection 11"});
}

TEST(ScenePlayer, ASoundIsChangedAndDestroyedWhileNothingHoldsIt) {
    Stage stage(timeline(R"({"at":0,"emitter":11,"state":"play"},
                            {"at":1,"source":1,"tone":{"hertz":100}},
                            {"at":2,"source":1,"destroy":true})"));
    stage.recorder.onCall = [&](const std::string& call) {
        if (call == "setSourceData 1" || call == "destroySource 1") {
            EXPECT_TRUE(stage.source(1).connectedEmitters().empty()) << call;
        }
    };
    const Calls calls = stage.advance(1);
    EXPECT_EQ(count(calls, "setSourceData 1"), 1U);
    EXPECT_EQ(calls.back(), "setEmitterState 12") << "both play again";
    EXPECT_EQ(stage.source(1).connectedEmitters().size(), 2U);
    EXPECT_EQ(stage.source(1).state(), Orvel::WorldPart::PLAY);
    EXPECT_EQ(count(stage.advance(2), "destroySource 1"), 1U);
    EXPECT_EQ(stage.world.getSource(1), nullptr);
}

TEST(ScenePlayer, EndsWhenTheLastSoundHas) {
    // Source 1 lasts 2 s, source 2 one second.
    const struct {
        const char* entries;
        double end;
    } rows[] = {
        {"", 0.0},
        {R"({"at":0.5,"emitter":11,"state":"play"})", 2.5},
        {R"({"at":0.5,"emitter":11,"state":"play"},{"at":9,"emitter":11,"gain":0})", 9.0},
        {R"({"at":8,"emitter":11,"gain":0,"over":1})", 9.0},
        {R"({"at":0,"emitter":11,"state":"play"},{"at":1,"source":1,"pitch":0.5})", 3.0},
        // The pitch falls from 1 to 0.5 over 2 s: 1.5 s of the sound have passed.
        {R"({"at":0,"emitter":11,"state":"play"},{"at":0,"source":1,"pitch":0.5,"over":2})", 3.0},
        {R"({"at":0,"emitter":11,"state":"play"},{"at":1,"emitter":11,"state":"pause"},
            {"at":5,"emitter":11,"state":"play"})",
         6.0},
        // It had ended when it was paused, so it plays from its start.
        {R"({"at":0,"emitter":11,"state":"play"},{"at":3,"emitter":11,"state":"pause"},
            {"at":5,"emitter":11,"state":"play"})",
         7.0},
        {R"({"at":0,"emitter":11,"state":"play"},{"at":1,"emitter":11,"state":"stop"},
            {"at":1,"emitter":11,"state":"play"})",
         3.0},
        {R"({"at":0,"emitter":11,"state":"play"},{"at":1.5,"emitter":11,"connect":2},
            {"at":1.5,"emitter":12,"connect":null})",
         2.5},
        {R"({"at":0,"emitter":11,"state":"play"},{"at":1.5,"source":1,"tone":{"seconds":3}})", 4.5},
        {R"({"at":0,"emitter":11,"state":"play"},{"at":1,"source":1,"destroy":true})", 1.0},
        // A loop counts until the end of its first round.
        {R"({"at":0,"source":1,"loop":true},{"at":1,"emitter":11,"state":"play"})", 3.0},
        {R"({"at":0,"source":1,"loop":true},{"at":0,"emitter":11,"state":"play"},
            {"at":7,"emitter":12,"gain":0})",
         7.0},
        {R"({"at":1,"source":3,"create":true,"tone":{"seconds":0.5}},
            {"at":1,"emitter":3,"create":true,"connect":3,"state":"play"})",
         1.5},
    };
    for (const auto& row : rows) {
        const Stage stage(timeline(row.entries));
        EXPECT_NEAR(stage.player->end(), row.end, 1e-9) << row.entries;
    }
    const Stage stage("\"duration\":0.25," + timeline(rows[1].entries));
    EXPECT_EQ(stage.player->end(), 0.25);
}

TEST(ScenePlayer, OpenALAcceptsEveryChangeAndTheScreenStaysClean) {
    const Orvel::Test::LogCapture log(Orvel::Log::Level::Warning);
    Orvel::Test::OutputCapture errors(STDERR_FILENO);
    Orvel::Test::TidyWorld world;
    auto* device = new Orvel::OALLoopbackBackend(world, "");
    ASSERT_TRUE(device->working());
    std::vector<Problem> problems;
    const std::optional<Scene> scene = parseScene(
        "{\"orvel\":1," + timeline(R"({"at":0,"emitter":11,"state":"play"},
                        {"at":0.1,"source":1,"tone":{"hertz":1000}},
                        {"at":0.2,"emitter":11,"connect":2},
                        {"at":0.3,"world":true,"enabled":false},
                        {"at":0.3,"listener":true,"position":[0,0,1]},
                        {"at":0.4,"world":true,"enabled":true},
                        {"at":0.5,"source":2,"destroy":true},{"at":0.5,"source":1,"destroy":true},
                        {"at":0.6,"emitter":11,"destroy":true})") +
            "}",
        "s.json", problems);
    ASSERT_TRUE(scene.has_value());
    SoundBank sounds;
    ASSERT_TRUE(sounds.load(*scene, problems));
    ScenePlayer player(*scene, sounds, world);
    for (int round = 0; round < 2; ++round) {
        player.start();
        std::vector<float> block(2 * 4410);
        const bool heard[] = {true, true, true, false, true, false, false};
        for (int i = 0; i < 7; ++i) {
            player.advance(i * 0.1);
            device->render(block.data(), 441); // the change-over
            ASSERT_TRUE(device->render(block.data(), 4410));
            const float peak =
                std::abs(*std::max_element(block.begin(), block.end(), [](float a, float b) {
                    return std::abs(a) < std::abs(b);
                }));
            EXPECT_EQ(peak > 1e-5F, heard[i]) << "at step " << i << " of round " << round;
        }
    }
    EXPECT_EQ(log.lines(), std::vector<std::string>{});
    EXPECT_EQ(errors.take(), "");
}
