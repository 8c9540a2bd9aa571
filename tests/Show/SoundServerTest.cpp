// How a sound server bridges the loss of its player, and finds differences from its scene.
#include <Show/server/SoundServer.h>

#include <Corvid/Communicator.h>
#include <Corvid/MultiClient.h>
#include <Orvel/ClientBackend.h>
#include <Orvel/DifferencesEvent.h>
#include <Orvel/Emitter.h>
#include <Orvel/Source.h>
#include <Orvel/TransformEvent.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <support/Loopback.h>
#include <support/RandomChanges.h>
#include <support/RecordingBackend.h>
#include <vector>

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

TEST_F(Holds, APlayerThatReturnsWithAnotherSceneLeavesNoSourcePlaying) {
    server_.setHold(1h);
    ASSERT_TRUE(serve([&] { return isPlaying(2); }));
    server_.player->close();
    ASSERT_TRUE(until([&] { return server_.player == nullptr; }, [&] { server_.serve(1ms); }));
    world_.reset();
    world_.createSource(1); // its state, NONE, is not sent
    ASSERT_TRUE(serve([&] { return server_.emitters().empty(); }));
    EXPECT_NE(server_.getSource(1)->state(), Orvel::WorldPart::PLAY);
}

TEST_F(Holds, TheSceneOfAPlayerThatDoesNotReturnEnds) {
    server_.setHold(50ms);
    ASSERT_TRUE(serve([&] { return isPlaying(2); }));
    server_.player->close();
    ASSERT_TRUE(until([&] { return server_.player == nullptr; }, [&] { server_.serve(1ms); }));
    EXPECT_TRUE(isPlaying(2));
    EXPECT_TRUE(until([&] { return server_.emitters().empty(); }, [&] { server_.serve(1ms); }));
}

namespace {

/// A scene with 10,000 changes a second, its server, and one who asks the server for differences.
class Verifies : public testing::Test {
protected:
    using Clock = std::chrono::steady_clock;
    static constexpr int kFirst = 100;  // of the emitters that only move
    static constexpr int kFaulty = 300; // and the last of them
    static constexpr auto kFrame = 10ms;

    class Server : public Show::SoundServer {
    public:
        explicit Server(const Show::LoadedScene& bank) : SoundServer(bank, 0) {
            setMulticastPort(testPort());
            setTimed();
            setGain(0.3F);
            setHold(1h);
            fill();
        }
        bool isFaulty = false;
        Corvid::Communicator* player = nullptr;

    protected:
        bool interceptEvent(Corvid::Event& event, Corvid::Communicator& from) override {
            player = &from;
            auto* move = dynamic_cast<Orvel::TransformEvent*>(&event);
            if (isFaulty && move != nullptr && move->objectId == kFaulty) {
                move->position.y += 0.001F;
            }
            return SoundServer::interceptEvent(event, from);
        }
        void clientLost(Corvid::Communicator& client) override {
            player = &client == player ? nullptr : player;
            SoundServer::clientLost(client);
        }
    };

    Verifies() {
        for (int id = 1; id <= 6; ++id) {
            bank_.scene.sources.emplace_back().id = id;
        }
        const std::string port = std::to_string(testPort());
        world_.addBackend(
            "client", ("deferred=yes followEnabled=yes latency=20 port=" + port).c_str());
        asker_.multicast().setPort(testPort());
        asker_.setSearchInterval(0.2);
        asker_.open();
        server_.emplace(bank_);
    }
    ~Verifies() override { asker_.close(); }

    void step() {
        const auto now = Clock::now();
        if (now >= nextFrame_) {
            nextFrame_ = std::max(nextFrame_ + kFrame, now);
            for (int id = kFirst; id <= kFaulty; ++id) {
                if (world_.getEmitter(id) == nullptr) {
                    world_.createEmitter({}, id); // a random reset has removed it
                }
            }
            for (int i = 0; i < 90; ++i) {
                const Orvel::Vec3f place{
                    changes_.number(), changes_.number(), 1e-7F * changes_.number()};
                world_.getEmitter(kFirst + changes_.below(200))->setTransform(&place, nullptr);
            }
            const Orvel::Vec3f place{static_cast<float>(++frame_), 0, 0};
            world_.getEmitter(kFaulty)->setTransform(&place, nullptr);
            changes_.change(Orvel::WorldPart::NONE);
            changes_.changeValues();
            world_.update();
            std::vector<std::byte> question;
            Orvel::CommandEvent(Orvel::CmdAskDifferences).encode(question);
            asker_.sendFrameTo(Orvel::CheckEvent::kFeature, question.data(), question.size());
        }
        server_->serve(1ms);
        takeAnswers();
    }
    void takeAnswers() {
        int waiting = 0;
        Corvid::Communicator* from = nullptr;
        while (asker_.communicatorsAvail(waiting) && waiting > 0 &&
               asker_.receiveCommunicator(from)) {
            Corvid::Event* received = nullptr;
            const bool good = Corvid::Event::receive(from, received);
            const std::unique_ptr<Corvid::Event> event(received);
            if (const auto* answer = dynamic_cast<Orvel::DifferencesEvent*>(event.get())) {
                answer_ = *answer;
                for (const std::string& name : answer_.names) {
                    EXPECT_EQ(name, "emitter 300");
                }
            } else if (!good) {
                asker_.removeCommunicator(from);
                delete from;
            }
        }
    }
    bool finds(std::size_t differences) {
        const unsigned before = answer_.sweeps;
        const bool found = until(
            [&] {
                return answer_.names.size() == differences && answer_.parts > 200 &&
                       (differences > 0 || answer_.sweeps != before);
            },
            [this] { step(); });
        return found && !HasFailure();
    }

    Show::LoadedScene bank_;
    TidyWorld world_;
    RandomChanges changes_{world_};
    std::optional<Server> server_;
    Corvid::MultiClient asker_{Orvel::CommandEvent::kProtocolVersion};
    Orvel::DifferencesEvent answer_;
    Clock::time_point nextFrame_;
    int frame_ = 0;
};

} // namespace

/// For as many seconds as ORVEL_VERIFY_SECONDS says.
TEST_F(Verifies, FindsAPlantedFaultAndNothingElseBesideCutsAndRestarts) {
    const char* seconds = std::getenv("ORVEL_VERIFY_SECONDS");
    const auto end = Clock::now() + std::chrono::seconds(seconds == nullptr ? 4 : atoi(seconds));
    double slowest = 0.0;
    for (int round = 0; round < 2 || Clock::now() < end; ++round) {
        ASSERT_TRUE(finds(0)) << round;
        const auto planted = Clock::now();
        server_->isFaulty = true;
        ASSERT_TRUE(finds(1)) << round;
        slowest = std::max(slowest, std::chrono::duration<double>(Clock::now() - planted).count());
        server_->isFaulty = false;
        ASSERT_TRUE(finds(0)) << round;
        if (round % 2 == 0) {
            server_->player->close();
            ASSERT_TRUE(until([&] { return server_->player == nullptr; }, [&] { step(); }));
        } else {
            server_.reset();
            server_.emplace(bank_);
        }
        ASSERT_TRUE(until([&] { return server_->player != nullptr; }, [&] { step(); }));
        answer_ = {};
    }
    std::printf("found within %.3f s, %d frames\n", slowest, frame_);
}

TEST(PitchHold, MakesUpDriftAndMovesSoundsAfterAGap) {
    Show::PitchHold hold;
    double error = 0.0; // of the sounds, as they are heard
    double worst = 0.0;
    double moved = 0.0;
    for (int i = 0; i < 4000; ++i) { // of 5 ms
        const double gap = i == 2000 ? -0.05 : 0.0;
        hold.update(1e-4 * 0.005 * i - (i >= 2000 ? 0.05 : 0.0), 0.005 * i, 0.0);
        const double move = hold.takeMove();
        moved += move;
        error += gap + move + 1e-4 * 0.005 + (hold.factor() - 1.0) * 0.005;
        worst = i < 2000 || i > 2300 ? std::max(worst, std::abs(error)) : worst;
        EXPECT_TRUE(i >= 2200 || move == 0.0) << "it may be a slip of the clock";
    }
    EXPECT_NEAR(moved, 0.05, 0.001);
    EXPECT_LT(worst, 40e-6);
}
