#include "support/Capture.h"
#include "support/RecordingBackend.h"

#include <Orvel/detail/net/Changes.h>

#include <climits>
#include <gtest/gtest.h>
#include <limits>
#include <thread>

namespace Orvel::Test {

TEST(World, TellsEveryBackendInTheOrderAdded) {
    std::string calls;
    TidyWorld world;
    for (const char* name : {"a ", "b "}) { // labels are filtered by the back ends
        (new RecordingBackend(world, "labels=nobody"))->onCall =
            [&calls, name](const std::string& call) { calls += name + call + ", "; };
    }
    Source* source = world.createSource();
    Emitter* emitter = world.createEmitter({"label"});
    source->setParam(source->loop(), source->pitch()); // equal or not
    emitter->setHull(10, 10, 0, 0);
    emitter->setSource(source);
    world.setSourceState(*source);
    world.setEnabled(world.enabled());
    EXPECT_TRUE(world.update());
    EXPECT_EQ(
        calls, "a createSource 1, b createSource 1, a createEmitter 2, b createEmitter 2, "
               "a setSourceParam 1, b setSourceParam 1, a setEmitterHull 2, b setEmitterHull 2, "
               "a setEmitterConnection 2, b setEmitterConnection 2, "
               "a setSourceState 1, b setSourceState 1, a setEnabled, b setEnabled, "
               "a update, b update, ");
}

TEST(World, ReplaysTheSceneToABackendThatComesLaterAndClearsIt) {
    static RecordingBackend* made = nullptr;
    const BackendType type("recording", [](World& world, const char* params) -> Backend* {
        return made = new RecordingBackend(world, params);
    });
    TidyWorld world;
    world.createSource(20);
    world.createEmitter({}, 4)->setSource(world.createSource(3));
    EXPECT_EQ(world.addBackend("recording", nullptr), made);
    const std::string told = testing::PrintToString(made->take());
    std::size_t at = 0;
    detail::forEachChange([&](const auto& row) { // a server receives the same in the same order
        if (row.replay != detail::Replay::No && row.kCommand != CmdResetBackend) {
            at = told.find(row.operation, at);
            EXPECT_NE(at, std::string::npos) << row.operation;
        }
    });
    EXPECT_EQ(
        told, R"({ "setEnabled", "setListenerTransform", "createSource 3", "setSourceData 3", )"
              R"("setSourceParam 3", "setSourceState 3", "createSource 20", "setSourceData 20", )"
              R"("setSourceParam 20", "setSourceState 20", "createEmitter 4", )"
              R"("setEmitterTransform 4", "setEmitterHull 4", "setEmitterParam 4", )"
              R"("setEmitterConnection 4", "setEmitterState 4" })");
    EXPECT_EQ((new RecordingBackend(world))->take(), Calls()) << "only those added by name";
    world.reset(); // emitters first
    const Calls expected{
        "setEmitterConnection 4", "destroyEmitter 4", "destroySource 3", "destroySource 20",
        "resetBackend"};
    EXPECT_EQ(made->take(), expected);
}

TEST(World, TellsABackendThatIsAppendedDuringAFanOut) {
    TidyWorld world;
    RecordingBackend* second = nullptr;
    (new RecordingBackend(world))->onCall = [&](const std::string&) {
        second = new RecordingBackend(world);
    };
    world.setEnabled(false);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(second->take(), Calls{"setEnabled"});
}

TEST(World, TestsTheListenerForAChangeComponentByComponent) {
    TidyWorld world;
    auto* backend = new RecordingBackend(world);
    world.setListenerTransform({1e-6F, -1e-7F, 1e-7F}, {-1e-7F, 1e-7F, 1e-7F, 0.9999999F});
    EXPECT_EQ(backend->take(), Calls());
    EXPECT_EQ(world.listenerPosition(), Vec3f());
    const std::pair<Vec3f, Quaternion> changes[] = {
        {{2e-6F, 0, 0}, {}},      {{0, -2e-6F, 0}, {}},
        {{0, 0, 2e-6F}, {}},      {{}, {-2e-6F, 0, 0, 1}},
        {{}, {0, 2e-6F, 0, 1}},   {{}, {0, 0, -2e-6F, 1}},
        {{}, {0, 0, 0, 0.9999F}}, {{}, {0, std::numeric_limits<float>::quiet_NaN(), 0, 1}},
    };
    for (const auto& [position, rotation] : changes) {
        world.setListenerTransform(position, rotation);
        EXPECT_EQ(backend->take(), Calls{"setListenerTransform"});
        EXPECT_EQ(world.listenerPosition(), position);
        world.setListenerTransform({}, {});
        EXPECT_EQ(backend->take(), Calls{"setListenerTransform"});
    }
}

TEST(World, NumbersPartsFromOneCounter) {
    TidyWorld world;
    EXPECT_EQ(world.createSource()->id(), 1);
    EXPECT_EQ(world.createEmitter()->id(), 2);
    EXPECT_EQ(world.createSource(10)->id(), 10);
    EXPECT_EQ(world.createEmitter()->id(), 11);
    EXPECT_EQ(world.createEmitter({}, 10)->id(), 10) << "a source may bear the same id";
    delete world.getEmitter(11);
    EXPECT_EQ(world.createEmitter()->id(), 12) << "ids are not used again";
    world.createSource(INT_MAX);
    EXPECT_EQ(world.createSource()->id(), INT_MIN);
    world.createEmitter({}, -1); // larger than INT_MIN, so the counter follows
    EXPECT_EQ(world.createEmitter(), nullptr) << "once when the counter wraps";
    EXPECT_EQ(world.createEmitter()->id(), 1);
}

/// With ThreadSanitizer, a look-up that stored anything would be reported.
TEST(World, FindsPartsByAnyIdOnSeveralThreads) {
    TidyWorld world;
    const int ids[] = {1, 2, 65535, 65536, 70000, INT_MAX, -1, -25536, INT_MIN};
    for (const int id : ids) {
        world.createEmitter({}, id)->setSource(world.createSource(id));
    }
    delete world.getEmitter(2);
    const auto read = [&] {
        for (const int id : ids) {
            const Emitter* emitter = world.getEmitter(id);
            ASSERT_EQ(emitter == nullptr, id == 2);
            EXPECT_EQ(world.getSource(id)->id(), id);
            EXPECT_EQ(
                id == 2 ? nullptr : emitter->source(), id == 2 ? nullptr : world.getSource(id));
        }
        for (const int id : {0, 3, 65534, 65537, -2}) {
            EXPECT_EQ(world.getEmitter(id), nullptr);
            EXPECT_EQ(world.getSource(id), nullptr);
        }
    };
    const std::jthread other(read);
    read();
}

TEST(World, SaysWhatIsWrongAndCounts) {
    static Source* orphan = nullptr; // cannot be deleted: its world is gone
    TidyWorld world;
    world.createEmitter({}, 8)->setSource(world.createSource(7));
    world.createEmitter();
    auto* backend = new RecordingBackend(world);
    LogCapture log(Log::Level::Warning);
    EXPECT_EQ(world.createSource(7), nullptr);
    EXPECT_EQ(world.createEmitter({}, 8), nullptr);
    EXPECT_EQ(backend->take(), Calls());
    world.print();
    EXPECT_EQ(world.addBackend(nullptr, nullptr), nullptr);
    orphan = World().createSource();
    const Calls expected{
        "FATAL: There is already a source with the ID 7\n",
        "FATAL: There is already a Orvel emitter with the ID 8",
        "LOG: Orvel Emitter/Source/Backend count: 2/1/1\n",
        "FATAL: Unknown Orvel backend ; can not create\n",
        "WARNING: Could not create Orvel backend: \n",
        "FATAL: clearWorld() should be called in derived World dest.\n"};
    EXPECT_EQ(log.take(), expected);
    EXPECT_EQ(orphan->pitch(), 1.0F) << "what is left is not deleted";
}

} // namespace Orvel::Test
