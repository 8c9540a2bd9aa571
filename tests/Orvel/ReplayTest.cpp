// Late servers and back ends get the same scene as those that were there before.
#include "support/Capture.h"
#include "support/Loopback.h"
#include "support/RandomChanges.h"
#include "support/RecordingBackend.h"
#include "support/TidyServer.h"
#include "support/WorldText.h"

#include <Corvid/MultiClient.h>
#include <Corvid/MultiServer.h>
#include <Orvel/ClientBackend.h>

#include <gtest/gtest.h>
#include <memory>

namespace Orvel::Test {

namespace {

/// A server with some of its client's sources, recreated after each reset.
class FilledServer : public TidyServer {
public:
    /// `provides`: recreates a source when its client creates it, as applications may.
    explicit FilledServer(bool provides) : provides_(provides) { fill(); }
    void resetWorld() override {
        Server::resetWorld();
        fill();
    }

protected:
    bool interceptEvent(Corvid::Event& event, Corvid::Communicator& /*from*/) override {
        const auto& command = dynamic_cast<const CommandEvent&>(event);
        if (!provides_ || command.command != CmdCreateSource || command.objectId > kSources) {
            return false;
        }
        if (getSource(command.objectId) == nullptr) {
            createSource(command.objectId);
        }
        return true;
    }

private:
    static constexpr int kSources = 4;
    void fill() {
        for (int id = 1; id <= kSources; ++id) {
            createSource(id);
        }
    }
    bool provides_;
};

} // namespace

TEST(Replay, MakesALateServerEqualToAnEarlyOne) {
    const LogCapture quiet(Log::Level::Log); // for ids in use and missing sources
    for (const bool provides : {false, true}) {
        TidyWorld world;
        FilledServer early(provides);
        const auto& client = dynamic_cast<ClientBackend&>(*world.addBackend(
            "client",
            ("deferred=yes followEnabled=yes port=" + std::to_string(testPort())).c_str()));
        RandomChanges changes(world);
        float moves = 0;
        const auto serve = [&](FilledServer* late, auto done) {
            return until(done, [&] {
                world.update();
                early.receive(false);
                if (late != nullptr) {
                    late->receive(false);
                }
            });
        };
        const auto connections = [&] { return client.multiClient().counters().connections.size(); };
        ASSERT_TRUE(serve(nullptr, [&] { return connections() == 1; }));
        for (int round = 0; round < 60; ++round) {
            for (int i = 0; i < 40; ++i) {
                changes.change(WorldPart::NONE);
            }
            FilledServer late(provides);
            late.setEnabled(round % 2 == 0); // as left by an earlier client
            ASSERT_TRUE(serve(&late, [&] { return connections() == 2; }));
            // A first move may be part of the replay; a second one arrives last.
            for (int i = 0; i < 2; ++i) {
                const Vec3f last{++moves, 0, 0};
                world.setListenerTransform(last, {});
                ASSERT_TRUE(serve(&late, [&] {
                    return early.listenerPosition() == last && late.listenerPosition() == last;
                }));
            }
            EXPECT_EQ(describe(late, false), describe(early, false)) << round;
            EXPECT_EQ(late.enabled(), world.enabled()) << round;
            EXPECT_EQ(early.enabled(), world.enabled()) << round;
        }
    }
}

TEST(Replay, MutesALateBackEndAsTheEarlyOnesAre) {
    // Moving the listener unmutes, so the order of these two matters.
    const BackendType type("recording", [](World& world, const char* params) -> Backend* {
        return new RecordingBackend(world, params);
    });
    TidyWorld world;
    const auto lastCall = [&world] {
        return dynamic_cast<RecordingBackend&>(*world.addBackend("recording", "")).take().back();
    };
    world.setListenerTransform({1, 0, 0}, {});
    EXPECT_EQ(lastCall(), "setListenerTransform");
    world.setEnabled(false);
    EXPECT_EQ(lastCall(), "setEnabled");
    world.setListenerTransform({2, 0, 0}, {});
    EXPECT_EQ(lastCall(), "setListenerTransform");
}

} // namespace Orvel::Test
