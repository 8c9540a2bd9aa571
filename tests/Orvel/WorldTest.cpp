#include "support/Capture.h"
#include "support/RecordingBackend.h"

#include <climits>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace Orvel::Test {

TEST(World, TellsEveryBackendOfEveryChangeInTheOrderAdded) {
    Calls calls;
    TidyWorld world;
    for (const char* name : {"a ", "b "}) { // filtering by labels is the back ends' business
        (new RecordingBackend(world, "labels=nobody"))->onCall =
            [&calls, name](const std::string& call) { calls.push_back(name + call); };
    }
    Source* source = world.createSource();
    Emitter* emitter = world.createEmitter({"label"});
    source->setParam(source->loop(), source->pitch());
    source->setDataFromURL("bell.wav");
    emitter->setHull(10, 10, 0, 0);
    emitter->setParam(true, 0, 1);
    emitter->setSource(source);
    emitter->setSource(nullptr);
    emitter->setState(WorldPart::PLAY);
    source->setState(WorldPart::PLAY);
    world.setSpatialize(false); // back ends look at it, they are not told
    world.setEnabled(world.enabled());
    world.setListenerTransform({1, 2, 3}, {});
    EXPECT_TRUE(world.update());
    delete emitter;
    delete source;
    world.reset();
    const Calls each{
        "createSource 1",
        "createEmitter 2",
        "setSourceParam 1",
        "setSourceData 1",
        "setEmitterHull 2",
        "setEmitterParam 2",
        "setEmitterConnection 2",
        "setEmitterConnection 2",
        "setEmitterState 2",
        "setSourceState 1",
        "setEnabled",
        "setListenerTransform",
        "update",
        "destroyEmitter 2",
        "destroySource 1",
        "resetBackend"};
    Calls expected;
    for (const std::string& call : each) {
        expected.insert(expected.end(), {"a " + call, "b " + call});
    }
    EXPECT_EQ(calls, expected);
}

TEST(World, ReplaysTheSceneToABackendThatComesLater) {
    static RecordingBackend* made = nullptr;
    const BackendType type("recording", [](World& world, const char* params) -> Backend* {
        return made = new RecordingBackend(world, params);
    });
    TidyWorld world;
    world.createSource(20);
    world.createEmitter({}, 4)->setSource(world.createSource(3));
    world.createEmitter({}, 2);
    const LogCapture log;
    EXPECT_EQ(world.addBackend("recording", nullptr), made);
    EXPECT_EQ(log.lines(), Calls{"NOTICE: Create new Orvel backend: recording\n"});
    Calls expected{"setEnabled", "setListenerTransform"};
    for (const char* id : {" 3", " 20"}) {
        for (const char* call :
             {"createSource", "setSourceData", "setSourceParam", "setSourceState"}) {
            expected.push_back(call + std::string(id));
        }
    }
    for (const char* id : {" 2", " 4"}) {
        for (const char* call :
             {"createEmitter", "setEmitterTransform", "setEmitterHull", "setEmitterParam",
              "setEmitterConnection", "setEmitterState"}) {
            expected.push_back(call + std::string(id));
        }
    }
    EXPECT_EQ(made->take(), expected);

    RecordingBackend direct(world);
    EXPECT_EQ(direct.take(), Calls()) << "who is not added by name gets no replay";
    EXPECT_EQ(world.backends().back(), &direct);
}

TEST(World, TellsABackendThatIsAppendedDuringAFanOut) {
    TidyWorld world;
    auto* first = new RecordingBackend(world);
    RecordingBackend* second = nullptr;
    first->onCall = [&](const std::string&) {
        if (second == nullptr) {
            second = new RecordingBackend(world);
        }
    };
    world.setEnabled(false);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(second->take(), Calls{"setEnabled"});
}

TEST(World, TestsTheListenerForAChangeComponentByComponent) {
    constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    const struct {
        const char* what;
        Vec3f position;
        Quaternion rotation;
        bool told;
    } rows[] = {
        {"the same", {}, {}, false},
        {"noise in all", {1e-7F, -1e-7F, 1e-7F}, {-1e-7F, 1e-7F, 1e-7F, 0.9999999F}, false},
        {"the tolerance itself", {1e-6F, 0, 0}, {}, false},
        {"x", {1e-5F, 0, 0}, {}, true},
        {"y", {0, -1e-5F, 0}, {}, true},
        {"z", {0, 0, 1e-5F}, {}, true},
        {"rotation x", {}, {-1e-5F, 0, 0, 1}, true},
        {"rotation y", {}, {0, 1e-5F, 0, 1}, true},
        {"rotation z", {}, {0, 0, -1e-5F, 1}, true},
        {"rotation w", {}, {0, 0, 0, 0.9999F}, true},
        {"not a number", {kNan, 0, 0}, {}, true},
        {"infinity", {}, {0, kInfinity, 0, 1}, true},
    };
    for (const auto& row : rows) {
        TidyWorld world;
        auto* backend = new RecordingBackend(world);
        world.setListenerTransform(row.position, row.rotation);
        EXPECT_EQ(backend->take().size(), row.told ? 1U : 0U) << row.what;
        const Vec3f position = row.told ? row.position : Vec3f{};
        EXPECT_TRUE(world.listenerPosition() == position || std::isnan(position.x)) << row.what;
        EXPECT_EQ(world.listenerRotation(), row.told ? row.rotation : Quaternion()) << row.what;
    }
}

TEST(World, NumbersPartsFromOneCounter) {
    TidyWorld world;
    EXPECT_EQ(world.createSource()->id(), 1);
    EXPECT_EQ(world.createEmitter()->id(), 2);
    EXPECT_EQ(world.createSource(10)->id(), 10);
    EXPECT_EQ(world.createEmitter()->id(), 11);
    EXPECT_EQ(world.createSource(5)->id(), 5);
    EXPECT_EQ(world.createEmitter({}, 5)->id(), 5) << "a source may bear the same id";
    EXPECT_EQ(world.createSource(-3)->id(), -3);
    EXPECT_EQ(world.createSource()->id(), 12);
    EXPECT_EQ(world.getSource(11), nullptr);
    delete world.getEmitter(11);
    EXPECT_EQ(world.createEmitter()->id(), 13) << "ids are not used again";
}

TEST(World, GivesNothingOnceWhenTheCounterWraps) {
    TidyWorld world;
    world.createSource(INT_MAX);
    EXPECT_EQ(world.createSource()->id(), INT_MIN);
    world.createEmitter({}, -1); // larger than INT_MIN, so the counter follows
    const LogCapture log;
    EXPECT_EQ(world.createEmitter(), nullptr);
    EXPECT_EQ(log.lines(), Calls()) << "no message";
    EXPECT_EQ(world.createSource()->id(), 1);
}

TEST(World, RefusesAnIdThatIsTaken) {
    TidyWorld world;
    Source* source = world.createSource(7);
    Emitter* emitter = world.createEmitter({}, 8);
    auto* backend = new RecordingBackend(world);
    LogCapture log;
    EXPECT_EQ(world.createSource(7), nullptr);
    EXPECT_EQ(log.take(), Calls{"FATAL: There is already a source with the ID 7\n"});
    EXPECT_EQ(world.createEmitter({}, 8), nullptr);
    EXPECT_EQ(log.take(), Calls{"FATAL: There is already a Orvel emitter with the ID 8"});
    EXPECT_EQ(world.getSource(7), source);
    EXPECT_EQ(world.getEmitter(8), emitter);
    EXPECT_EQ(backend->take(), Calls());
    EXPECT_EQ(world.createSource()->id(), 9);
}

TEST(World, ClearsEmittersBeforeSourcesAndThenResets) {
    TidyWorld world;
    for (const int id : {5, 1}) {
        world.createEmitter({}, id)->setSource(world.createSource(id + 1));
    }
    auto* backend = new RecordingBackend(world);
    world.reset();
    EXPECT_EQ(
        backend->take(),
        (Calls{
            "setEmitterConnection 1", "destroyEmitter 1", "setEmitterConnection 5",
            "destroyEmitter 5", "destroySource 2", "destroySource 6", "resetBackend"}));
    EXPECT_TRUE(world.emitters().empty());
    EXPECT_TRUE(world.sources().empty());
    EXPECT_EQ(world.createSource()->id(), 7) << "the counter goes on";
}

TEST(World, LetsADerivedWorldIntercept) {
    class Interceptor : public TidyWorld {
    public:
        using World::setEnabled;
        void setEnabled() override { seen.emplace_back("setEnabled"); }
        void setEmitterState(Emitter& /*emitter*/) override {
            seen.emplace_back("setEmitterState");
        }
        void clearWorld() override {
            seen.emplace_back("clearWorld");
            World::clearWorld();
        }
        void setSourceDuration(Source& source) override {
            seen.push_back("setSourceDuration " + std::to_string(source.duration()));
        }
        Calls seen;
    } world;
    auto* backend = new RecordingBackend(world);
    world.setEnabled(false);
    world.createEmitter()->setState(WorldPart::PLAY);
    backend->setSourceDuration(*world.createSource(), 2.5F);
    world.reset();
    EXPECT_EQ(
        world.seen,
        (Calls{"setEnabled", "setEmitterState", "setSourceDuration 2.500000", "clearWorld"}));
    EXPECT_EQ(
        backend->take(), (Calls{
                             "createEmitter 1", "createSource 2", "destroyEmitter 1",
                             "destroySource 2", "resetBackend"}));
}

TEST(World, PrintsItsCountsAtEveryLevel) {
    TidyWorld world;
    LogCapture log(Log::Level::Log);
    world.print();
    world.createEmitter()->setSource(world.createSource());
    world.createEmitter();
    const RecordingBackend backends[3] = {
        RecordingBackend(world), RecordingBackend(world), RecordingBackend(world)};
    world.print();
    EXPECT_EQ(
        log.take(), (Calls{
                        "LOG: Orvel Emitter/Source/Backend count: 0/0/0\n",
                        "LOG: Orvel Emitter/Source/Backend count: 2/1/3\n"}));
}

TEST(World, ReportsPartsThatAreLeftAndDoesNotDeleteThem) {
    LogCapture log;
    static Source* orphan = nullptr; // cannot be deleted: its world is gone
    {
        World world;
        orphan = world.createSource();
        orphan->setParam(true, 3.0F);
    }
    EXPECT_EQ(log.take(), Calls{"FATAL: clearWorld() should be called in derived World dest.\n"});
    EXPECT_EQ(orphan->pitch(), 3.0F);
    {
        World world;
        delete world.createSource();
    }
    EXPECT_EQ(log.take(), Calls());
}

} // namespace Orvel::Test
