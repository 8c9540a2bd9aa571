// Late servers and back ends get the same scene as those that were there before.
#include "support/Capture.h"
#include "support/Loopback.h"
#include "support/RecordingBackend.h"
#include "support/TidyServer.h"
#include "support/WorldText.h"

#include <Corvid/MultiClient.h>
#include <Corvid/MultiServer.h>
#include <Orvel/ClientBackend.h>

#include <gtest/gtest.h>
#include <memory>
#include <random>

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

/// Makes a random change, with many emitters sharing few sources.
void changeSomething(World& world, std::mt19937& random) {
    const auto below = [&random](unsigned bound) { return static_cast<int>(random() % bound); };
    Source* source = world.getSource(1 + below(6));
    Emitter* emitter = world.getEmitter(1 + below(8));
    const auto state = static_cast<WorldPart::State>(below(4)); // NONE included
    const int kind = below(100);
    if (kind < 3) {
        delete source;
    } else if (kind < 10) {
        world.createSource(1 + below(6));
    } else if (kind < 15) {
        delete emitter;
    } else if (kind < 30) {
        world.createEmitter({}, 1 + below(8));
    } else if (kind < 50 && source != nullptr) {
        source->setState(state);
    } else if (kind < 70 && emitter != nullptr) {
        emitter->setState(state);
    } else if (emitter != nullptr && kind < 98) {
        emitter->setSource(below(6) == 0 ? nullptr : source);
    } else if (kind == 98) {
        world.setEnabled(below(2) == 0);
    } else if (kind == 99 && below(10) == 0) {
        world.reset();
    }
}

} // namespace

TEST(Replay, MakesALateServerEqualToAnEarlyOne) {
    const LogCapture quiet(Log::Level::Log); // for ids in use and missing sources
    for (const bool provides : {false, true}) {
        TidyWorld world;
        FilledServer early(provides);
        const auto& client = dynamic_cast<ClientBackend&>(*world.addBackend(
            "client",
            ("deferred=yes followEnabled=yes port=" + std::to_string(testPort())).c_str()));
        std::mt19937 random(7);
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
                changeSomething(world, random);
            }
            FilledServer late(provides);
            late.setEnabled(round % 2 == 0); // as left by an earlier client
            ASSERT_TRUE(serve(&late, [&] { return connections() == 2; }));
            const Vec3f last{++moves, 0, 0}; // arrives last
            world.setListenerTransform(last, {});
            const auto arrived = [&] {
                return early.listenerPosition() == last && late.listenerPosition() == last;
            };
            ASSERT_TRUE(serve(&late, arrived));
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
