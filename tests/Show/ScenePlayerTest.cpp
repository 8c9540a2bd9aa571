#include <Show/player/ScenePlayer.h>

#include <Orvel/Diagnostic.h>
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

using namespace Show;
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

} // namespace

TEST(ScenePlayer, RampsStartFromTheValueOfTheMomentAndAreReplaced) {
    Stage stage(timeline(R"(
        {"at":1,"emitter":11,"position":[5,0,0],"gain":0,"over":4},
        {"at":3,"emitter":11,"position":[3,2,0],"over":4},
        {"at":4,"emitter":11,"position":[0,0,0]},
        {"at":1,"source":1,"pitch":2,"over":1},
        {"at":1,"emitter":11,"hull":{"maxBack":30},"over":0.5},
        {"at":1.5,"emitter":11,"hull":{"maxFront":40}})"));
    // The time, the position's x and y, the gain, the pitch, maxBack, maxFront, the next change.
    const std::vector<double> rows[] = {
        {1, 1, 0, 1, 1, 10, 10, 1.5},
        {1.25, 1.25, 0, 0.9375, 1.25, 20, 10, 1.5},
        {1.5, 1.5, 0, 0.875, 1.5, 30, 40, 2},
        {2, 2, 0, 0.75, 2, 30, 40, 3},
        {3.5, 3, 0.25, 0.375, 2, 30, 40, 4},
        {4, 0, 0, 0.25, 2, 30, 40, 5},
        {5, 0, 0, 0, 2, 30, 40, std::numeric_limits<double>::infinity()},
    };
    for (const auto& row : rows) {
        stage.player->advance(row[0]);
        const Orvel::Emitter& e = stage.emitter(11);
        const std::vector<double> values{
            row[0],
            e.position().x,
            e.position().y,
            e.gain(),
            stage.source(1).pitch(),
            e.maxBack(),
            e.maxFront(),
            stage.player->nextChange(row[0])};
        EXPECT_EQ(values, row);
    }
    EXPECT_FALSE(stage.player->moving());
    EXPECT_EQ(stage.advance(6), Calls{});
}

TEST(ScenePlayer, AStepOverEverythingEndsWhereSmallStepsDo) {
    for (const double step : {20.0, 0.01}) {
        Stage stage(timeline(R"({"at":0,"emitter":11,"position":[9,0,0],"over":2},
                                {"at":1,"emitter":11,"position":[5,4,0],"over":3},
                                {"at":2,"emitter":12,"destroy":true},
                                {"at":3,"emitter":12,"create":true},
                                {"at":1,"emitter":12,"gain":0,"over":9})"));
        for (double now = 0.0; now <= 20.0; now += step) {
            stage.player->advance(now);
        }
        EXPECT_EQ(stage.emitter(11).position(), (Orvel::Vec3f{5, 4, 0}));
        EXPECT_EQ(stage.emitter(12).gain(), 1.0F) << "a ramp outlived its emitter";
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

TEST(ScenePlayer, TellsBackEndsWhatEachChangeNeeds) {
    const struct {
        std::string change;
        Calls calls;
    } rows[] = {
        {R"("emitter":12,"spatial":false)",
         {"setEmitterParam 12", "setEmitterTransform 12", "setEmitterHull 12"}},
        {R"("world":true,"spatialize":false)",
         {"setEmitterTransform 11", "setEmitterHull 11", "setEmitterTransform 12",
          "setEmitterHull 12"}},
        {R"("world":true,"enabled":false)", {"setEnabled"}},
        // Moving the listener would unmute the scene.
        {R"("listener":true,"position":[2,0,0])", {"setListenerTransform", "setEnabled"}},
        {R"("emitter":11,"state":"play")",
         {"setEmitterState 11", "setSourceState 1", "setEmitterState 12"}},
        // Continues playing, and other parts of either source are not affected.
        {R"("emitter":11,"connect":2)",
         {"setEmitterConnection 11", "setEmitterState 11", "setEmitterConnection 11",
          "setEmitterState 11", "setSourceState 2"}},
        {R"("emitter":11,"connect":2)", {}},
        // No emitter holds a sound while it is changed or destroyed.
        {R"("source":2,"tone":{"hertz":100})",
         {"setEmitterConnection 11", "setSourceData 2", "setEmitterState 11",
          "setEmitterConnection 11", "setEmitterState 11"}},
        {R"("source":2,"destroy":true)", {"setEmitterConnection 11", "destroySource 2"}},
    };
    std::string entries;
    for (const auto& row : rows) {
        entries += &row == rows ? "{" : ",{";
        entries += row.change + ",\"at\":" + std::to_string(&row - rows + 1) + '}';
    }
    Stage stage(timeline(entries));
    // A real back end reports no error, and nothing is printed.
    ASSERT_TRUE((new Orvel::OALLoopbackBackend(stage.world, ""))->working());
    const Orvel::Test::LogCapture log(Orvel::Log::Level::Warning);
    Orvel::Test::OutputCapture errors(STDERR_FILENO);
    Orvel::setDiagnosticSink([](const Orvel::Diagnostic& diagnostic) {
        return diagnostic.code == Orvel::Diagnostic::Code::SoundSet;
    });
    stage.player->start();
    for (const auto& row : rows) {
        EXPECT_EQ(stage.advance(static_cast<double>(&row - rows + 1)), row.calls) << row.change;
    }
    stage.recorder.take();
    stage.player->start();
    const Calls again = stage.recorder.take();
    EXPECT_EQ(std::count(again.begin(), again.end(), "setSourceData 1"), 0) << "it was there";
    EXPECT_EQ(std::count(again.begin(), again.end(), "setSourceData 2"), 1) << "it had another";
    EXPECT_EQ(log.lines(), Calls{});
    EXPECT_EQ(errors.take(), "");
    Orvel::setDiagnosticSink({});
    EXPECT_TRUE(stage.world.enabled() && stage.world.spatialize());
    EXPECT_EQ(stage.world.listenerPosition(), Orvel::Vec3f{});
}

TEST(ScenePlayer, EndsWhenTheLastSoundHas) {
    const std::string play = R"({"at":0.5,"emitter":11,"state":"play"})"; // a source of 2 s
    const std::string playLater = R"(,{"at":5,"emitter":11,"state":"play"})";
    const std::pair<std::string, double> rows[] = {
        {"", 0.0},
        {play, 2.5},
        {play + R"(,{"at":9,"emitter":11,"gain":0,"over":1})", 10.0},
        // The pitch falls from 1 to 0.5 over 2 s: 1.5 s of the sound have passed.
        {play + R"(,{"at":0.5,"source":1,"pitch":0.5,"over":2})", 3.5},
        {play + R"(,{"at":1,"emitter":11,"state":"pause"})" + playLater, 6.5},
        // It had ended when it was paused, so it plays from its start.
        {play + R"(,{"at":3,"emitter":11,"state":"pause"})" + playLater, 7.0},
        {play + R"(,{"at":2,"emitter":11,"connect":2},{"at":2,"emitter":12,"connect":null})", 3.0},
        {play + R"(,{"at":2,"source":1,"tone":{"seconds":3}})", 5.0},
        {play + R"(,{"at":1,"source":1,"destroy":true})", 1.0},
        // A loop counts until the end of its first round.
        {play + R"(,{"at":0,"source":1,"loop":true})", 2.5},
    };
    for (const auto& [entries, end] : rows) {
        const Stage stage(timeline(entries));
        EXPECT_NEAR(stage.player->end(), end, 1e-9) << entries;
    }
    const Stage stage("\"duration\":0.25," + timeline(play));
    EXPECT_EQ(stage.player->end(), 0.25);
}
