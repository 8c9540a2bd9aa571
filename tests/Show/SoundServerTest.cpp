// How a sound server bridges the loss of its player.
#include <Show/server/SoundServer.h>

#include <Corvid/Communicator.h>
#include <Orvel/ClientBackend.h>
#include <Orvel/Emitter.h>
#include <Orvel/Source.h>

#include <algorithm>
#include <gtest/gtest.h>
#include <sstream>
#include <support/Loopback.h>
#include <support/RecordingBackend.h>

using namespace Orvel::Test;
using namespace std::chrono_literals;

namespace {

class Holds : public testing::Test {
protected:
    class Server : public Show::SoundServer {
    public:
        explicit Server(const Show::LoadedScene& bank) : SoundServer(bank, 0) {
            setMulticastPort(testPort());
            setTimed();
            fill();
        }
        Corvid::Communicator* player = nullptr;

    protected:
        bool interceptEvent(Corvid::Event& event, Corvid::Communicator& from) override {
            player = &from;
            return SoundServer::interceptEvent(event, from);
        }
        void clientLost(Corvid::Communicator& client) override {
            player = nullptr;
            SoundServer::clientLost(client);
        }
    };

    Holds() {
        world_.createSource(1);
        for (const int id : {2, 3, 4}) {
            Orvel::Emitter* emitter = world_.createEmitter({}, id);
            emitter->setSource(world_.getSource(1));
            emitter->setState(Orvel::WorldPart::PLAY);
        }
        const std::string params = "deferred=yes latency=20 port=" + std::to_string(testPort());
        world_.addBackend("client", params.c_str());
    }
    template <class Done>
    bool serve(Done done) {
        return until(done, [this] {
            world_.update();
            server_.serve(1ms);
        });
    }
    bool isPlaying(int id) {
        const Orvel::Emitter* emitter = server_.getEmitter(id);
        return emitter != nullptr && emitter->state() == Orvel::WorldPart::PLAY;
    }

    TidyWorld world_;
    Show::LoadedScene bank_ = [] {
        Show::LoadedScene bank;
        bank.scene.sources.emplace_back().id = 1;
        return bank;
    }();
    Server server_{bank_};
};

} // namespace

TEST_F(Holds, APlayerThatReturnsChangesOnlyWhatIsDifferent) {
    server_.setHold(1h);
    ASSERT_TRUE(serve([&] { return isPlaying(2) && isPlaying(3) && isPlaying(4); }));
    // A sound that starts anew must be told from one that goes on.
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_TRUE(serve([&] { return std::chrono::steady_clock::now() > begin + 100ms; }));
    auto* calls = new RecordingBackend(server_); // the world deletes it
    calls->take();
    server_.player->close();
    ASSERT_TRUE(until([&] { return server_.player == nullptr; }, [&] { server_.serve(1ms); }));
    // Without its source, for else all of its emitters would start anew.
    Orvel::Emitter* anew = world_.getEmitter(3);
    anew->setSource(nullptr);
    anew->setState(Orvel::WorldPart::STOP);
    anew->setSource(world_.getSource(1));
    anew->setState(Orvel::WorldPart::PLAY);
    delete world_.getEmitter(4);
    ASSERT_TRUE(isPlaying(4)) << "the scene goes on";
    ASSERT_TRUE(serve([&] { return server_.getEmitter(4) == nullptr; }));
    const auto made = calls->take();
    const auto count = [&](const char* call) { return std::ranges::count(made, call); };
    for (const char* call :
         {"createEmitter 2", "destroyEmitter 2", "setEmitterConnection 2", "setEmitterState 2",
          "createEmitter 3", "setSourceState 1"}) {
        EXPECT_EQ(count(call), 0) << call;
    }
    EXPECT_EQ(count("setEmitterState 3"), 2) << "it stops, and plays from its new position";
    EXPECT_TRUE(isPlaying(2) && isPlaying(3));
}

TEST_F(Holds, TheSceneOfAPlayerThatDoesNotReturnEnds) {
    server_.setHold(50ms);
    ASSERT_TRUE(serve([&] { return isPlaying(2); }));
    server_.player->close();
    ASSERT_TRUE(until([&] { return server_.player == nullptr; }, [&] { server_.serve(1ms); }));
    EXPECT_TRUE(isPlaying(2));
    EXPECT_TRUE(until([&] { return server_.emitters().empty(); }, [&] { server_.serve(1ms); }));
}
