#include "support/Capture.h"
#include "support/RecordingBackend.h"

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
    s1.setState(WorldPart::PLAY);
    EXPECT_EQ(backend.take(), Calls()) << "nothing changed";
    s1.setState(WorldPart::STOP);
    EXPECT_EQ(backend.take(), fromSource);
    EXPECT_TRUE(e3.state() == WorldPart::STOP && e3.previousState() == WorldPart::PLAY);
    e4.setState(WorldPart::PLAY);
    EXPECT_EQ(backend.take(), Calls{"setEmitterState 4"});
    // Connecting keeps the states; the next change makes them equal.
    e4.setSource(&s1);
    EXPECT_EQ(backend.take(), Calls{"setEmitterConnection 4"});
    s1.setState(WorldPart::PLAY);
    EXPECT_EQ(backend.take(), fromSource);
}

TEST_F(Parts, ConnectsAnEmitterToOneSourceAtATime) {
    e3.setSource(&s1);
    e4.setSource(nullptr);
    EXPECT_EQ(backend.take(), Calls()) << "as it was";
    e3.setSource(&s2);
    EXPECT_EQ(backend.take(), Calls{"setEmitterConnection 3"}) << "once for both sides";
    EXPECT_EQ(s1.connectedEmitters(), (std::map<int, Emitter*>{{5, &e5}}));
    EXPECT_EQ(s2.connectedEmitters(), (std::map<int, Emitter*>{{3, &e3}}));
    e5.setSource(nullptr);
    EXPECT_TRUE(s1.connectedEmitters().empty());
}

TEST_F(Parts, EndsInOrder) {
    std::string state; // the existing and connected parts during each call
    backend.onCall = [&](const std::string&) {
        state += world.getSource(1) != nullptr ? " 1" : "";
        state += e5.source() != nullptr ? "-5" : "";
        state += world.getEmitter(4) != nullptr ? " 4" : "";
    };
    delete &e4; // connected to none
    EXPECT_EQ(backend.take(), Calls{"destroyEmitter 4"});
    EXPECT_EQ(state, " 1-5 4");
    delete &s1;
    const Calls expected{"destroySource 1", "setEmitterConnection 3", "setEmitterConnection 5"};
    EXPECT_EQ(backend.take(), expected);
    EXPECT_EQ(state, " 1-5 4 1-5 1-5 1") << "told before anything is gone";
    EXPECT_EQ(world.getSource(1), nullptr);
    e3.setSource(&s2);
    delete &e3;
    EXPECT_TRUE(s2.connectedEmitters().empty());
    backend.onCall = nullptr;
}

TEST_F(Parts, TestsAnEmittersTransformForAChange) {
    const Vec3f near{1e-7F, -1e-7F, 1e-7F};
    const Vec3f far{1e-7F, 0.001F, 0};
    const Vec3f noNumber{0, std::numeric_limits<float>::quiet_NaN(), 0};
    const Quaternion nearly{1e-7F, 0, 0, 1};
    const Quaternion turned{0, 0, 0.001F, 1};
    const struct {
        const Vec3f* position;
        const Quaternion* rotation;
        bool moved;
        bool rotated;
    } rows[] = {
        {nullptr, nullptr, false, false},  {&near, &nearly, false, false},
        {&far, &nearly, true, false},      {&near, &turned, false, true},
        {&noNumber, nullptr, true, false},
    };
    for (const auto& row : rows) {
        Emitter& emitter = *world.createEmitter();
        backend.take();
        emitter.setTransform(row.position, row.rotation);
        EXPECT_EQ(backend.take().size(), row.moved || row.rotated ? 1U : 0U) << &row - rows;
        // A value within the tolerance is not stored either.
        EXPECT_EQ(emitter.position() == Vec3f(), !row.moved) << &row - rows;
        EXPECT_EQ(emitter.rotation(), row.rotated ? *row.rotation : Quaternion()) << &row - rows;
    }
}

} // namespace Orvel::Test
