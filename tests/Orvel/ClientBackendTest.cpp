// The client back end: what it sends, whom it brings up to date, what it takes from servers.
#include "support/Capture.h"
#include "support/EventText.h"
#include "support/Loopback.h"
#include "support/RecordingBackend.h"

#include <Corvid/MultiClient.h>
#include <Corvid/MultiServer.h>
#include <Orvel/ClientBackend.h>
#include <Orvel/Server.h>

#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <sstream>
#include <utility>

namespace Orvel::Test {

namespace {

/// Polled; writes down what it is sent, and takes sources from its clients if told to.
class TestServer : public Server {
public:
    explicit TestServer(bool takesSources = false) : takesSources_(takesSources) {
        setMulticastPort(testPort());
    }
    ~TestServer() override {
        clearWorld();
        deleteAllBackends();
    }
    /// The events since the last call, as "34 7 1 2 -3 0 0 0 1": command, id, values.
    Calls take() { return std::exchange(events_, {}); }

protected:
    bool interceptEvent(Corvid::Event& event, Corvid::Communicator& /*from*/) override {
        const auto& command = dynamic_cast<const CommandEvent&>(event);
        EXPECT_EQ(command.protocolTag, 3378);
        std::string text = std::to_string(command.command) + ' ' + std::to_string(command.objectId);
        const std::string own = values(event);
        events_.push_back(own.empty() ? text : text + ' ' + own);
        return takesSources_ && command.command == CmdCreateSource &&
               createSource(command.objectId) != nullptr;
    }

private:
    const bool takesSources_;
    Calls events_;
};

/// All that travels, for comparing two worlds.
std::string describe(World& world) {
    std::ostringstream text;
    const auto place = [&text](const Vec3f& p, const Quaternion& r) {
        for (const float value : {p.x, p.y, p.z, r.x, r.y, r.z, r.w}) {
            text << value << ' ';
        }
    };
    place(world.listenerPosition(), world.listenerRotation());
    for (const auto& [id, s] : world.sources()) {
        text << "\nsource " << id << ' ' << s->state() << s->previousState() << ' ' << s->loop()
             << ' ' << s->pitch();
        for (const auto& [emitterId, emitter] : s->connectedEmitters()) {
            text << ' ' << emitterId;
        }
    }
    for (const auto& [id, e] : world.emitters()) {
        text << "\nemitter " << id << ' ' << e->state() << e->previousState() << ' '
             << (e->source() == nullptr ? 0 : e->source()->id()) << ' ' << e->maxBack() << ' '
             << e->maxFront() << ' ' << e->minBack() << ' ' << e->minFront() << ' ' << e->gain()
             << ' ' << e->paramValue() << ' ' << e->paramFlag() << ' '
             << testing::PrintToString(e->labels()) << ' ';
        place(e->position(), e->rotation());
    }
    return text.str();
}

const std::string kEnd = "INFO: exit ClientBackend::receiveThread\n";

class ClientBackends : public testing::Test {
protected:
    static ClientBackend& addClient(World& world, const std::string& more = "deferred=yes") {
        const std::string params = "port=" + std::to_string(testPort()) + ' ' + more;
        auto* client = dynamic_cast<ClientBackend*>(world.addBackend("client", params.c_str()));
        if (client == nullptr) {
            throw std::runtime_error("no client back end");
        }
        return *client;
    }
    static std::size_t connections(const ClientBackend& client) {
        return client.multiClient().counters().connections.size();
    }
    /// Whether `done` came true while all were served.
    template <class Done>
    static bool serve(World& world, std::vector<TestServer*> servers, Done done) {
        return until(done, [&] {
            world.update();
            for (TestServer* server : servers) {
                server->receive(false);
            }
        });
    }

    LogCapture log{Log::Level::Fatal};
};

} // namespace

TEST_F(ClientBackends, ReportAStateThatThereIsNot) {
    int number = 7; // kept from the compiler, which knows the states that there are
    const auto unknown = static_cast<WorldPart::State>(number);
    EXPECT_EQ(ClientBackend::sourceState2Command(unknown), 0);
    EXPECT_EQ(ClientBackend::emitterState2Command(unknown), 0);
    EXPECT_EQ(
        log.take(), (Calls{
                        "FATAL: Unknown Orvel::WorldPart::source state: 7\n",
                        "FATAL: Unknown Orvel::WorldPart::emitter state: 7\n"}));
}

TEST_F(ClientBackends, TellANewServerTheSceneInOrderAndThenEachChange) {
    TidyWorld world;
    world.createSource(70000)->setParam(true, 2);
    Source* plays = world.createSource(3);
    plays->setState(WorldPart::PLAY);
    Emitter* emitter = world.createEmitter({"front", "x"}, 40000);
    emitter->setSource(world.getSource(70000));
    emitter->setParam(false, 0.5F, 0.25F);
    emitter->setHull(4, 3, 2, 1);
    const Vec3f ahead{0, 0, -2};
    emitter->setTransform(&ahead, nullptr);
    world.setListenerTransform({1, 2, 3}, {0, 1, 0, 0});
    ClientBackend& client = addClient(world);
    TestServer server;
    const Calls replay = {
        "10 0",
        "13 0 1 2 3 0 1 0 0",
        "20 3  0 ",
        "22 3 1 0",
        "24 3",
        "20 4464  0 ",
        "22 4464 2 1",
        "30 -25536 { \"front\", \"x\" }",
        "34 -25536 0 0 -2 0 0 0 1",
        "35 -25536 4 3 2 1",
        "32 -25536 0.25 0.5 0",
        "33 -25536 4464"};
    Calls received;
    const auto collect = [&] {
        const Calls more = server.take();
        received.insert(received.end(), more.begin(), more.end());
        return received.size() >= replay.size();
    };
    ASSERT_TRUE(serve(world, {&server}, collect));
    EXPECT_EQ(received, replay);

    log.take();
    const Vec3f left{-1, 0, 0};
    const struct {
        const char* what;
        std::function<void()> change;
        Calls events;
        Calls lines = {};
    } rows[] = {
        {"reset", [&] { client.resetBackend(); }, {"10 0"}},
        {"switched off", [&] { world.setEnabled(false); }, {"11 0"}},
        {"listener", [&] { world.setListenerTransform({}, {}); }, {"13 0 0 0 0 0 0 0 1"}},
        {"source", [&] { world.createSource(5); }, {"20 5  0 "}},
        {"data",
         [&] { client.setSourceData(*plays); },
         {},
         {"FATAL: ClientBackend::setSourceData() not implemented\n"}},
        {"parameters", [&] { plays->setParam(true, 0.5F); }, {"22 3 0.5 1"}},
        {"pause", [&] { plays->setState(WorldPart::PAUSE); }, {"25 3"}},
        {"stop", [&] { plays->setState(WorldPart::STOP); }, {"26 3"}},
        {"no state", [&] { plays->setState(WorldPart::NONE); }, {}},
        {"play", [&] { plays->setState(WorldPart::PLAY); }, {"24 3"}},
        {"destroy source", [&] { delete world.getSource(5); }, {"21 5"}},
        {"emitter", [&] { world.createEmitter({}, 9); }, {"30 9 {}"}},
        {"move",
         [&] { world.getEmitter(9)->setTransform(&left, nullptr); },
         {"34 9 -1 0 0 0 0 0 1"}},
        {"hull", [&] { world.getEmitter(9)->setHull(1, 2, 3, 4); }, {"35 9 1 2 3 4"}},
        {"gain", [&] { world.getEmitter(9)->setParam(true, 1, 2); }, {"32 9 2 1 1"}},
        {"connect", [&] { world.getEmitter(9)->setSource(plays); }, {"33 9 3"}},
        {"pause both", [&] { world.getEmitter(9)->setState(WorldPart::PAUSE); }, {"37 9", "25 3"}},
        {"stop both", [&] { plays->setState(WorldPart::STOP); }, {"26 3", "38 9"}},
        {"play both", [&] { world.getEmitter(9)->setState(WorldPart::PLAY); }, {"36 9", "24 3"}},
        {"no state of both", [&] { plays->setState(WorldPart::NONE); }, {}},
        {"destroy emitter", [&] { delete world.getEmitter(9); }, {"33 9 0", "31 9"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        server.take();
        const auto before = server.receivedEvents();
        world.createEmitter({}, 100); // marks the end
        row.change();
        delete world.getEmitter(100);
        const auto expected = static_cast<std::int64_t>(row.events.size()) + 2;
        ASSERT_TRUE(serve(world, {}, [&] {
            server.receive(false);
            return server.receivedEvents() - before >= expected;
        }));
        Calls events = {"30 100 {}"};
        events.insert(events.end(), row.events.begin(), row.events.end());
        events.emplace_back("31 100");
        EXPECT_EQ(server.take(), events);
        Calls lines = log.take();
        // The server, which has no sources and is in this process, complains about many.
        lines.erase(
            std::remove_if(
                lines.begin(), lines.end(),
                [](const std::string& line) {
                    return line.find("Got invalid Event") != std::string::npos;
                }),
            lines.end());
        EXPECT_EQ(lines, row.lines);
    }
}

TEST_F(ClientBackends, KeepBothWorldsEqualThroughThousandsOfChanges) {
    TidyWorld world;
    TestServer server(true);
    ClientBackend& client = addClient(world);
    ASSERT_TRUE(serve(world, {&server}, [&] { return connections(client) == 1; }));
    std::mt19937 random(2024);
    const auto below = [&random](std::size_t bound) { return random() % bound; };
    const auto number = [&] { return static_cast<float>(below(100)) / 8; };
    const auto any = [&below](const auto& parts) {
        return parts.empty()
                   ? nullptr
                   : std::next(parts.begin(), static_cast<long>(below(parts.size())))->second;
    };
    const auto state = [&below] { return static_cast<WorldPart::State>(1 + below(3)); };
    for (int i = 0; i < 6000; ++i) {
        Source* source = any(world.sources());
        Emitter* emitter = any(world.emitters());
        const auto kind = below(100);
        if (kind < 2 || source == nullptr) {
            world.createSource();
        } else if (kind < 5 || emitter == nullptr) {
            world.createEmitter(below(2) == 0 ? Calls{} : Calls{"front", "x"});
        } else if (kind < 6) {
            delete source;
        } else if (kind < 8) {
            delete emitter;
        } else if (kind < 15) {
            source->setState(state());
        } else if (kind < 25) {
            emitter->setState(state());
        } else if (kind < 35) {
            emitter->setSource(below(4) == 0 ? nullptr : source);
        } else if (kind < 40) {
            source->setParam(below(2) == 0, number());
        } else if (kind < 50) {
            emitter->setParam(below(2) == 0, number(), number());
        } else if (kind < 60) {
            emitter->setHull(number(), number(), number(), number());
        } else if (kind < 65) {
            world.setListenerTransform({number(), number(), number()}, {0, number(), 0, 1});
        } else if (kind == 65 && below(20) == 0) {
            world.reset();
        } else {
            const Vec3f position{number(), number(), number()};
            const Quaternion rotation{number(), 0, 0, 1};
            emitter->setTransform(&position, below(2) == 0 ? nullptr : &rotation);
        }
        if (below(50) == 0) {
            world.update();
            server.receive(false);
        }
    }
    const std::string expected = describe(world);
    ASSERT_GT(world.emitters().size(), 3U);
    EXPECT_TRUE(serve(world, {&server}, [&] { return describe(server) == expected; }))
        << expected << "\n---\n"
        << describe(server);
    EXPECT_EQ(log.take(), Calls{}) << "nothing was invalid";
}

TEST_F(ClientBackends, BringEveryServerUpToDateWheneverItComes) {
    TidyWorld world;
    Source* source = world.createSource(1);
    world.createEmitter({}, 2)->setSource(source);
    source->setState(WorldPart::PLAY);
    addClient(world);
    log.take();
    const auto equal = [&](TestServer& server) {
        return [&world, &server] { return describe(server) == describe(world); };
    };
    auto first = std::make_unique<TestServer>(true);
    TestServer second(true);
    ASSERT_TRUE(serve(world, {first.get(), &second}, equal(*first)));
    ASSERT_TRUE(serve(world, {first.get(), &second}, equal(second)));

    const Vec3f position{1, 2, 3};
    world.getEmitter(2)->setTransform(&position, nullptr);
    TestServer late(true);
    for (TestServer* server : {first.get(), &second, &late}) {
        EXPECT_TRUE(serve(world, {first.get(), &second, &late}, equal(*server)));
    }
    EXPECT_TRUE(log.take().empty());

    first.reset();
    ASSERT_TRUE(serve(world, {&second, &late}, [&] { return !log.lines().empty(); }));
    EXPECT_EQ(log.take(), Calls{"FATAL: ClientBackend: Lost server\n"});
    world.createEmitter({"new"}, 3);
    first = std::make_unique<TestServer>(true); // as if restarted
    for (TestServer* server : {first.get(), &second, &late}) {
        EXPECT_TRUE(serve(world, {first.get(), &second, &late}, equal(*server)));
    }
    EXPECT_TRUE(log.take().empty());

    {
        OutputCapture output(STDOUT_FILENO);
        world.deleteAllBackends();
        EXPECT_EQ(output.take(), kEnd);
    }
    for (TestServer* server : {first.get(), &second, &late}) {
        EXPECT_TRUE(serve(world, {first.get(), &second, &late}, [&] {
            return server->emitters().empty();
        })) << "the last reset arrives";
    }
}

TEST_F(ClientBackends, TakeDurationsFromServersAndNothingElse) {
    TidyWorld world;
    world.createSource(1);
    world.createSource(-2);
    ClientBackend& client = addClient(world);
    log.take();
    TestServer server(true);
    ASSERT_TRUE(serve(world, {&server}, [&] { return server.sources().size() == 2; }));
    auto* recorder = new RecordingBackend(server); // stands for one that measures
    recorder->setSourceDuration(*server.getSource(1), 2.5F);
    server.createSource(5);
    recorder->setSourceDuration(*server.getSource(5), 1);
    recorder->setSourceDuration(*server.getSource(-2), 3);
    ASSERT_TRUE(serve(world, {&server}, [&] { return world.getSource(-2)->duration() == 3; }));
    EXPECT_EQ(world.getSource(1)->duration(), 2.5F);
    EXPECT_EQ(log.take(), Calls{"FATAL: Got invalid Event: SourceDurationEvent/23/5/3378\n"});

    const auto refused = [&](CommandEvent&& event, int command, int id, const Calls& lines) {
        event.address(static_cast<Command>(command), id);
        EXPECT_FALSE(client.dispatchEvent(&event));
        EXPECT_EQ(log.take(), lines);
    };
    refused(CommandEvent(), 23, 1, {"FATAL: Got invalid Event: CommandEvent/23/1/3378\n"});
    refused(
        SourceParamEvent(), 22, 1,
        {"FATAL: Unkown command ID: 22\n",
         "FATAL: Got invalid Event: SourceParamEvent/22/1/3378\n"});
    refused(
        SourceDurationEvent(), -1, 1,
        {"FATAL: Unkown command ID: -1\n",
         "FATAL: Got invalid Event: SourceDurationEvent/-1/1/3378\n"});
    EXPECT_EQ(world.getSource(1)->duration(), 2.5F);
}

TEST_F(ClientBackends, ReplayOnTheirOwnThreadByDefault) {
    TidyWorld world;
    world.createEmitter({}, 2);
    addClient(world, "");
    TestServer server(true);
    ASSERT_TRUE(
        until([&] { return describe(server) == describe(world); }, [&] { server.receive(false); }));
    {
        OutputCapture output(STDOUT_FILENO);
        world.deleteAllBackends(); // waits for the thread
        EXPECT_EQ(output.take(), kEnd);
    }
    EXPECT_TRUE(until([&] { return server.emitters().empty(); }, [&] { server.receive(false); }));
}

TEST_F(ClientBackends, ReachNamedServersWithoutMulticast) {
    TidyWorld world;
    world.createEmitter({}, 2);
    TestServer server(true);
    server.setMulticastPort(static_cast<unsigned short>(testPort() ^ 1U));
    addClient(
        world,
        "deferred=yes servers=\"127.0.0.1:" + std::to_string(server.multiServer().port()) + "\"");
    EXPECT_TRUE(serve(world, {&server}, [&] { return describe(server) == describe(world); }));
}

TEST_F(ClientBackends, ReportParametersThatCannotBe) {
    const struct {
        const char* params;
        Calls lines; // after "WARNING: ClientBackend: "
    } rows[] = {
        {"transferData=off deferred=1", {}},
        {"transferData=perhaps", {"transferData=\"perhaps\" is neither yes nor no; taken as yes"}},
        {"deferred=''", {"deferred=\"\" is neither yes nor no; taken as no"}},
        {"group=10.0.0.1",
         {"group=\"10.0.0.1\" is not used: a multicast address from 224.0.0.0 to 239.255.255.255 "
          "expected"}},
        {"ttl=256 ttl=-1", {"ttl=\"-1\" is not used: a number from 0 to 255 expected"}},
        {"port=0", {"port=\"0\" is not used: a number from 1 to 65535 expected"}},
        {"port=12x", {"port=\"12x\" is not used: a number from 1 to 65535 expected"}},
        {"interfaces=\"127.0.0.1, lo\"",
         {"interfaces=\"lo\" is not used: the IPv4 address of an interface expected"}},
        {"servers=\"host, :1, host:0, host:70000\"",
         {"servers=\"host\" is not used: HOST:PORT expected",
          "servers=\":1\" is not used: HOST:PORT expected",
          "servers=\"host:0\" is not used: HOST:PORT expected",
          "servers=\"host:70000\" is not used: HOST:PORT expected"}},
    };
    for (const auto& row : rows) {
        TidyWorld world;
        LogCapture warnings(Log::Level::Warning);
        EXPECT_NE(world.addBackend("client", row.params), nullptr);
        Calls lines;
        for (const std::string& line : row.lines) {
            lines.push_back("WARNING: ClientBackend: " + line + '\n');
        }
        EXPECT_EQ(warnings.lines(), lines) << row.params;
    }
    TidyWorld world;
    const auto& settings =
        addClient(world, "group=239.1.2.3 ttl=0 interfaces=127.0.0.1").multiClient().multicast();
    EXPECT_EQ(settings.address().text(), "239.1.2.3");
    EXPECT_EQ(settings.port(), testPort());
    EXPECT_EQ(settings.ttl(), 0);
    EXPECT_EQ(settings.interfaces().size(), 1U);
}

} // namespace Orvel::Test
