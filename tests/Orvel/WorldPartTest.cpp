#include "support/Capture.h"
#include "support/RecordingBackend.h"

#include <Orvel/WorldPart.h>

#include <gtest/gtest.h>
#include <limits>

namespace Orvel::Test {

namespace {

/// Two sources and three emitters; 3 and 5 are connected to source 1.
class Parts : public testing::Test {
protected:
    Parts() {
        e5.setSource(&s1);
        e3.setSource(&s1);
        backend.take();
    }

    TidyWorld world;
    RecordingBackend& backend = *new RecordingBackend(world);
    Source& s1 = *world.createSource(1);
    Source& s2 = *world.createSource(2);
    Emitter& e3 = *world.createEmitter({}, 3);
    Emitter& e4 = *world.createEmitter({}, 4);
    Emitter& e5 = *world.createEmitter({}, 5);
};

} // namespace

TEST_F(Parts, SpreadsAStateToAllThatIsConnected) {
    const Calls fromEmitter{"setEmitterState 5", "setSourceState 1", "setEmitterState 3"};
    const Calls fromSource{"setSourceState 1", "setEmitterState 3", "setEmitterState 5"};
    e5.setState(WorldPart::PLAY);
    EXPECT_EQ(backend.take(), fromEmitter);
    e3.setState(WorldPart::PLAY);
    s1.setState(WorldPart::PLAY);
    EXPECT_EQ(backend.take(), Calls()) << "nothing changed";
    s1.setState(WorldPart::STOP);
    EXPECT_EQ(backend.take(), fromSource);
    for (const WorldPart* part :
         {static_cast<WorldPart*>(&s1), static_cast<WorldPart*>(&e3),
          static_cast<WorldPart*>(&e5)}) {
        EXPECT_EQ(part->state(), WorldPart::STOP);
        EXPECT_EQ(part->previousState(), WorldPart::PLAY);
    }
    EXPECT_EQ(e4.state(), WorldPart::NONE);
    e4.setState(WorldPart::PLAY);
    EXPECT_EQ(backend.take(), Calls{"setEmitterState 4"});
    // Connecting leaves the states; what differs afterwards meets at the next change.
    e4.setSource(&s1);
    EXPECT_EQ(backend.take(), Calls{"setEmitterConnection 4"});
    EXPECT_EQ(e4.state(), WorldPart::PLAY);
    s1.setState(WorldPart::PLAY);
    EXPECT_EQ(backend.take(), fromSource);
}

TEST_F(Parts, ConnectsAnEmitterToOneSourceAtATime) {
    const auto connected = [](const Source& source) {
        std::vector<int> ids;
        for (const auto& [id, emitter] : source.connectedEmitters()) {
            EXPECT_EQ(emitter->source(), &source);
            EXPECT_EQ(emitter->id(), id);
            ids.push_back(id);
        }
        return ids;
    };
    e3.setSource(&s1);
    e4.setSource(nullptr);
    EXPECT_EQ(backend.take(), Calls()) << "as it was";
    e3.setSource(&s2);
    EXPECT_EQ(backend.take(), Calls{"setEmitterConnection 3"}) << "once for both sides";
    EXPECT_EQ(connected(s1), std::vector<int>{5});
    EXPECT_EQ(connected(s2), std::vector<int>{3});
    e5.setSource(nullptr);
    EXPECT_EQ(e5.source(), nullptr);
    EXPECT_TRUE(s1.connectedEmitters().empty());
}

TEST_F(Parts, TellsOfASourcesEndBeforeItsEmittersAreDisconnected) {
    Calls sourcesThen;
    backend.onCall = [&](const std::string&) {
        sourcesThen.push_back(std::string(e3.source() ? "3" : "-") + (e5.source() ? "5" : "-"));
    };
    s1.setState(WorldPart::PLAY);
    backend.take();
    sourcesThen.clear();
    delete &s1;
    EXPECT_EQ(
        backend.take(),
        (Calls{"destroySource 1", "setEmitterConnection 3", "setEmitterConnection 5"}));
    EXPECT_EQ(sourcesThen, (Calls{"35", "-5", "--"}));
    EXPECT_EQ(world.getSource(1), nullptr);
    EXPECT_EQ(e3.state(), WorldPart::PLAY) << "emitters live on as they were";
    backend.onCall = nullptr;
}

TEST_F(Parts, DisconnectsAnEmitterBeforeTellingOfItsEnd) {
    bool stillThere = false;
    backend.onCall = [&](const std::string& call) {
        stillThere = call == "destroyEmitter 3" && world.getEmitter(3) != nullptr;
    };
    delete &e3;
    EXPECT_EQ(backend.take(), (Calls{"setEmitterConnection 3", "destroyEmitter 3"}));
    EXPECT_TRUE(stillThere);
    backend.onCall = nullptr;
    EXPECT_EQ(world.getEmitter(3), nullptr);
    EXPECT_FALSE(s1.connectedEmitters().contains(3));
    delete &e4;
    EXPECT_EQ(backend.take(), Calls{"destroyEmitter 4"}) << "it was not connected";
}

TEST_F(Parts, TestsAnEmittersTransformForAChange) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const Vec3f near{1e-7F, -1e-7F, 1e-7F};
    const Vec3f far{0, 0.001F, 0};
    const Vec3f noNumber{0, 0, nan};
    const Quaternion nearly{1e-7F, 0, 0, 1};
    const Quaternion turned{0, 0, 0.001F, 1};
    const struct {
        const char* what;
        const Vec3f* position;
        const Quaternion* rotation;
        bool moved;
        bool rotated;
    } rows[] = {
        {"nothing given", nullptr, nullptr, false, false},
        {"near", &near, nullptr, false, false},
        {"both near", &near, &nearly, false, false},
        {"moved", &far, nullptr, true, false},
        {"moved, rotation near", &far, &nearly, true, false},
        {"turned", nullptr, &turned, false, true},
        {"turned, position near", &near, &turned, false, true},
        {"both", &far, &turned, true, true},
        {"not a number", &noNumber, nullptr, true, false},
    };
    for (const auto& row : rows) {
        Emitter& emitter = *world.createEmitter();
        backend.take();
        emitter.setTransform(row.position, row.rotation);
        EXPECT_EQ(backend.take().size(), row.moved || row.rotated ? 1U : 0U) << row.what;
        // The half that is equal within the tolerance is not stored either.
        EXPECT_EQ(emitter.position().y, row.moved ? row.position->y : 0.0F) << row.what;
        EXPECT_EQ(emitter.position().x, 0.0F) << row.what;
        EXPECT_EQ(emitter.rotation(), row.rotated ? *row.rotation : Quaternion()) << row.what;
    }
}

TEST_F(Parts, TakesParametersInTheirOrder) {
    e4.setHull(1, 2, 3, 4);
    e4.setParam(false, 5, 6);
    s2.setParam(true, 7);
    EXPECT_EQ(backend.take(), (Calls{"setEmitterHull 4", "setEmitterParam 4", "setSourceParam 2"}));
    const std::vector<float> hull{e4.maxBack(), e4.maxFront(), e4.minBack(), e4.minFront()};
    EXPECT_EQ(hull, (std::vector<float>{1, 2, 3, 4}));
    EXPECT_TRUE(!e4.paramFlag() && e4.paramValue() == 5 && e4.gain() == 6);
    EXPECT_TRUE(s2.loop() && s2.pitch() == 7);
    const std::vector<float> defaults{e3.maxBack(),  e3.maxFront(),   e3.minBack(),
                                      e3.minFront(), e3.paramValue(), e3.gain()};
    EXPECT_EQ(defaults, (std::vector<float>{10, 10, 0, 0, 0, 1}));
    EXPECT_TRUE(e3.paramFlag() && !s1.loop() && s1.pitch() == 1);
}

TEST_F(Parts, ReplacesTheEntryOfItsIdWhenMadeDirectly) {
    {
        Source same(world, 2);
        Emitter alike(world, 4, {});
        EXPECT_EQ(world.getSource(2), &same);
        EXPECT_EQ(world.getEmitter(4), &alike);
        EXPECT_EQ(backend.take(), Calls()) << "a part made directly tells nobody";
    }
    // The entry goes with the one that stood there last.
    EXPECT_EQ(world.getSource(2), nullptr);
    delete &s2;
    delete &e4;
}

} // namespace Orvel::Test
