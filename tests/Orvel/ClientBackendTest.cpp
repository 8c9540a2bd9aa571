// The client back end: what it sends, the replay to new servers, and events from servers.
#include "support/Capture.h"
#include "support/EventText.h"
#include "support/Loopback.h"
#include "support/RandomChanges.h"
#include "support/RecordingBackend.h"
#include "support/TidyServer.h"
#include "support/WorldText.h"

#include <Corvid/MultiClient.h>
#include <Corvid/MultiServer.h>
#include <Corvid/detail/net/Backlog.h>
#include <Orvel/ClientBackend.h>
#include <Orvel/OrvelMultiClient.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <sstream>

namespace Orvel::Test {

namespace {

/// A polled server that records its events and accepts sources from its clients.
class TestServer : public TidyServer {
public:
    Calls events; // as "34 7 1 2 -3 0 0 0 1": command, id, values
    std::function<void(Corvid::Event&)> onEvent;

    void apply(Corvid::Event& event) {
        auto& command = dynamic_cast<CommandEvent&>(event);
        if (!intercept(command)) {
            applyEvent(*this, &command);
        }
    }

protected:
    bool interceptEvent(Corvid::Event& event, Corvid::Communicator& /*from*/) override {
        if (onEvent) {
            onEvent(event);
        }
        return intercept(dynamic_cast<const CommandEvent&>(event));
    }

private:
    bool intercept(const CommandEvent& command) {
        std::string text = std::to_string(command.command) + ' ' + std::to_string(command.objectId);
        const std::string own = values(command);
        events.push_back(own.empty() ? text : text + ' ' + own);
        return command.command == CmdCreateSource && createSource(command.objectId) != nullptr;
    }
};

/// A backlog and a server behind it that reads a limited number of bytes.
class Laggard {
public:
    void add(Corvid::Event& event) {
        std::vector<std::byte> frame;
        event.encode(frame);
        const std::span<const std::byte> bytes(frame);
        backlog_.add(OrvelMultiClient::roleOf, bytes.first(7)); // as if split between two chunks
        backlog_.add(OrvelMultiClient::roleOf, bytes.subspan(7));
    }
    void take(std::size_t most) {
        const auto bytes = backlog_.next().first(std::min(most, backlog_.next().size()));
        received_.insert(received_.end(), bytes.begin(), bytes.end());
        backlog_.advance(bytes.size());
        std::uint32_t length = 0;
        while (received_.size() >= sizeof length &&
               (std::memcpy(&length, received_.data(), sizeof length),
                received_.size() >= length + sizeof length)) {
            const std::span frame(received_.data(), length + sizeof length);
            const std::unique_ptr<Corvid::Event> event(Corvid::Event::decode(frame));
            server.apply(*event);
            received_.erase(received_.begin(), received_.begin() + static_cast<long>(frame.size()));
        }
    }
    [[nodiscard]] std::uint64_t leftOut() const { return backlog_.counts().leftOut; }

    TestServer server;

private:
    Corvid::detail::Backlog backlog_;
    std::vector<std::byte> received_;
};

class ClientBackends : public testing::Test {
protected:
    static ClientBackend& addClient(World& world, const std::string& more = "deferred=yes") {
        const std::string params = "port=" + std::to_string(testPort()) + ' ' + more;
        return dynamic_cast<ClientBackend&>(*world.addBackend("client", params.c_str()));
    }
    /// Whether `done` became true while all were served.
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
    const auto receives = [&](const Calls& expected) {
        server.events.clear();
        EXPECT_TRUE(
            serve(world, {&server}, [&] { return server.events.size() >= expected.size(); }));
        EXPECT_EQ(server.events, expected);
    };
    receives(
        {"10 0", "13 0 1 2 3 0 1 0 0", "20 3  0 ", "22 3 1 0", "24 3", "20 4464  0 ", "22 4464 2 1",
         "30 -25536 { \"front\", \"x\" }", "34 -25536 0 0 -2 0 0 0 1", "35 -25536 4 3 2 1",
         "32 -25536 0.25 0.5 0", "33 -25536 4464"});
    log.take();
    client.resetBackend();
    client.setSourceData(*plays);
    EXPECT_EQ(log.take(), Calls{"FATAL: ClientBackend::setSourceData() not implemented\n"});
    world.setEnabled(false);
    world.setListenerTransform({}, {});
    plays->setParam(true, 0.5F);
    plays->setState(WorldPart::NONE); // is not sent
    emitter->setSource(plays);
    emitter->setState(WorldPart::PAUSE);
    plays->setState(WorldPart::STOP);
    emitter->setState(WorldPart::PLAY);
    delete emitter;
    delete world.getSource(70000);
    receives(
        {"10 0", "11 0", "13 0 0 0 0 0 0 0 1", "22 3 0.5 1", "33 -25536 3", "37 -25536", "25 3",
         "26 3", "38 -25536", "36 -25536", "24 3", "33 -25536 0", "31 -25536", "21 4464"});
}

TEST_F(ClientBackends, HaveServersThatKeepTimesApplyChangesTogetherAndOthersOnArrival) {
    using Clock = std::chrono::steady_clock;
    TidyWorld world;
    Source* source = world.createSource(1);
    Emitter* emitter = world.createEmitter({}, 2);
    emitter->setSource(source);
    emitter->setState(WorldPart::PLAY);
    ClientBackend& client = addClient(world, "deferred=yes latency=50");
    struct : TestServer {
        Lead lead() override { return {.start = std::chrono::milliseconds(150), .value = {}}; }
    } timed;
    TestServer late;
    TestServer plain;
    timed.setTimed();
    late.setTimed();
    const auto has = [](TestServer& server, const std::string& event) {
        return std::ranges::count(server.events, event) > 0;
    };
    ASSERT_TRUE(
        serve(world, {&timed, &plain}, [&] { return has(timed, "17 0") && has(plain, "36 2"); }));
    EXPECT_FALSE(has(plain, "17 0"));
    EXPECT_EQ(
        std::ranges::count_if(
            plain.events,
            [](const auto& event) { return event.starts_with("14 ") || event.starts_with("39 "); }),
        0);

    Clock::time_point applied;
    timed.onEvent = [&](auto&) { applied = Clock::now(); };
    timed.events.clear();
    plain.events.clear();
    const auto changed = Clock::now();
    emitter->setHull(4, 3, 2, 1);
    ASSERT_TRUE(serve(world, {&timed, &plain}, [&] { return has(plain, "35 2 4 3 2 1"); }));
    ASSERT_TRUE(serve(world, {&timed, &plain}, [&] { return has(timed, "35 2 4 3 2 1"); }));
    EXPECT_GE(applied, changed + client.latency() - std::chrono::milliseconds(1));

    ASSERT_TRUE(serve(world, {&timed, &late}, [&] { return has(late, "17 0"); }));
    const auto position = std::ranges::find_if(
        late.events, [](const auto& event) { return event.starts_with("39 2 "); });
    ASSERT_NE(position, late.events.end()) << "where the sound is";
    EXPECT_GE(std::stod(position->substr(5)), 50e6);
    EXPECT_EQ(*std::next(position), "36 2") << "and from there it plays";
    ASSERT_TRUE(serve(world, {&timed, &late}, [&] {
        return client.multiClient().counters().connections.at(0).timing.clock.known;
    })) << "servers report how they keep the times";

    ASSERT_TRUE(serve(world, {&timed, &late}, [&] {
        return client.neededLatency() > client.latency();
    })) << "and what their outputs need";
    client.raiseLatency(client.neededLatency());
    const auto raised = Clock::now();
    emitter->setHull(8, 7, 6, 5);
    ASSERT_TRUE(serve(world, {&timed, &late}, [&] { return has(timed, "35 2 8 7 6 5"); }));
    EXPECT_GE(applied, raised + std::chrono::milliseconds(149));
}

TEST_F(ClientBackends, KeepAllWorldsEqualThroughThousandsOfChanges) {
    TidyWorld world;
    TestServer server;
    Laggard laggard;
    server.onEvent = [&laggard](Corvid::Event& event) { laggard.add(event); };
    const ClientBackend& client = addClient(world);
    ASSERT_TRUE(serve(
        world, {&server}, [&] { return !client.multiClient().counters().connections.empty(); }));
    RandomChanges changes(world);
    for (int i = 0; i < 12000; ++i) {
        changes.change(WorldPart::PLAY);
        changes.changeValues();
        if (changes.below(50) == 0) {
            world.update();
            server.receive(false);
            laggard.take(
                static_cast<std::size_t>(changes.below(changes.below(4) == 0 ? 5000 : 300)));
        }
    }
    ASSERT_GT(world.emitters().size(), 3U);
    EXPECT_TRUE(serve(world, {&server}, [&] { return describe(server) == describe(world); }))
        << describe(world) << "\n---\n"
        << describe(server);
    laggard.take(SIZE_MAX);
    EXPECT_EQ(describe(laggard.server), describe(world));
    EXPECT_EQ(laggard.server.events.size() + laggard.leftOut(), server.events.size());
    EXPECT_GT(laggard.leftOut(), 1000U);
    EXPECT_EQ(log.take(), Calls{}) << "nothing was invalid";
}

TEST_F(ClientBackends, NeverLetAValueOvertakeAnEventOfItsPart) {
    Laggard laggard;
    const auto add = [&](const Calls& rows) { // as recorded, only x of the values
        laggard.server.events.clear();
        for (const std::string& row : rows) {
            CommandEvent plain;
            CreateEmitterEvent create;
            TransformEvent move;
            int command = 0;
            int part = 0;
            std::istringstream(row) >> command >> part >> move.position.x;
            CommandEvent& event = command == CmdCreateEmitter ? create
                                  : move.position.x != 0      ? move
                                                              : plain;
            event.address(static_cast<Command>(command), part);
            laggard.add(event);
        }
    };
    add(
        {"30 1", "30 2", "34 1 1", "34 2 2", "34 1 3", "36 1", "34 2 4", "34 1 5", "13 0 6", "12 0",
         "13 0 7"});
    laggard.take(SIZE_MAX);
    EXPECT_EQ(
        laggard.server.events,
        (Calls{
            "30 1 {}", "30 2 {}", "34 1 3 0 0 0 0 0 1", "34 2 4 0 0 0 0 0 1", "36 1",
            "34 1 5 0 0 0 0 0 1", "13 0 6 0 0 0 0 0 1", "12 0", "13 0 7 0 0 0 0 0 1"}));
    add({"30 3", "34 3 1", "13 0 8"});
    laggard.take(3); // part of the first one is sent
    add({"10 0", "30 3"});
    laggard.take(SIZE_MAX);
    EXPECT_EQ(laggard.server.events, (Calls{"30 3 {}", "13 0 8 0 0 0 0 0 1", "10 0", "30 3 {}"}));
}

TEST_F(ClientBackends, LetAServerThatLagsCatchUpAndNoOtherNotice) {
    TidyWorld world;
    ClientBackend& client = addClient(world, "deferred=yes newestOnly=yes");
    client.multiClient().setLagLimit(std::size_t{1} << 20U);
    constexpr int kEmitters = 1000; // the replay about fills a socket
    constexpr int kMoves = 40000;   // 2 MB
    TestServer good;
    TestServer slow;
    slow.setId(2);
    for (int id = 1; id <= kEmitters; ++id) {
        world.createEmitter({}, id);
    }
    ASSERT_TRUE(serve(world, {&good, &slow}, [&] {
        return client.multiClient().counters().connections.size() == 2;
    }));
    const auto last = [](TestServer& server) {
        Emitter* emitter = server.getEmitter(kEmitters);
        return emitter == nullptr ? -1.0F : emitter->position().x;
    };
    for (int i = 1; i <= kMoves; ++i) {
        const Vec3f position{static_cast<float>(i), 0, 0};
        world.getEmitter(1 + (i - 1) % kEmitters)->setTransform(&position, nullptr);
        if (i % kEmitters == 0) {
            ASSERT_TRUE(serve(world, {&good}, [&] { return last(good) == position.x; }));
        }
    }
    ASSERT_TRUE(serve(world, {&slow}, [&] { return last(slow) == last(good); }));
    EXPECT_EQ(describe(good), describe(world));
    EXPECT_TRUE(serve(world, {&slow}, [&] { return describe(slow) == describe(world); }));
    for (const auto& connection : client.multiClient().counters().connections) {
        EXPECT_EQ(connection.eventsLeftOut > kMoves / 4, connection.peerId == slow.id());
    }
    EXPECT_EQ(client.multiClient().counters().dropped, 0U);
}

TEST_F(ClientBackends, ReportALostServerAndTakeItBack) {
    TidyWorld world;
    world.createEmitter({"front"}, 3);
    addClient(world);
    auto server = std::make_unique<TestServer>();
    const auto equal = [&] { return describe(*server) == describe(world); };
    ASSERT_TRUE(serve(world, {server.get()}, equal));
    EXPECT_EQ(log.take(), Calls{});
    server.reset();
    ASSERT_TRUE(serve(world, {}, [&] { return !log.lines().empty(); }));
    EXPECT_EQ(log.take(), Calls{"FATAL: ClientBackend: Lost server\n"});
    server = std::make_unique<TestServer>(); // as if restarted
    EXPECT_TRUE(serve(world, {server.get()}, equal));
}

TEST_F(ClientBackends, TakeDurationsFromServersAndNothingElse) {
    TidyWorld world;
    world.createSource(1);
    world.createSource(-2);
    ClientBackend& client = addClient(world);
    log.take();
    TestServer server;
    ASSERT_TRUE(serve(world, {&server}, [&] { return server.sources().size() == 2; }));
    auto* recorder = new RecordingBackend(server); // in place of one that measures
    recorder->setSourceDuration(*server.getSource(1), 2.5F);
    recorder->setSourceDuration(*server.createSource(5), 1);
    recorder->setSourceDuration(*server.getSource(-2), 3);
    ASSERT_TRUE(serve(world, {&server}, [&] { return world.getSource(-2)->duration() == 3; }));
    EXPECT_EQ(world.getSource(1)->duration(), 2.5F);
    EXPECT_EQ(log.take(), Calls{"FATAL: Got invalid Event: SourceDurationEvent/23/5/3378\n"});
    SourceParamEvent param;
    param.address(CmdSetSourceParam, 1);
    EXPECT_FALSE(client.dispatchEvent(&param));
    EXPECT_EQ(
        log.take(), (Calls{
                        "FATAL: Unkown command ID: 22\n",
                        "FATAL: Got invalid Event: SourceParamEvent/22/1/3378\n"}));
}

TEST_F(ClientBackends, ReplayOnTheirOwnThreadToNamedServers) {
    TidyWorld world;
    world.createEmitter({}, 2);
    TestServer server;
    server.setMulticastPort(static_cast<unsigned short>(testPort() ^ 1U)); // not found by multicast
    addClient(world, "servers=127.0.0.1:" + std::to_string(server.multiServer().port()));
    const auto receive = [&] { server.receive(false); };
    ASSERT_TRUE(until([&] { return describe(server) == describe(world); }, receive));
    OutputCapture output(STDOUT_FILENO);
    world.deleteAllBackends(); // waits for the thread
    EXPECT_EQ(output.take(), "INFO: exit ClientBackend::receiveThread\n");
    EXPECT_TRUE(until([&] { return server.emitters().empty(); }, receive))
        << "the last reset arrives";
}

TEST_F(ClientBackends, ReportParametersThatCannotBe) {
    TidyWorld world;
    LogCapture warnings(Log::Level::Warning);
    addClient(
        world, "transferData=perhaps deferred='' group=10.0.0.1 ttl=256 port=12x "
               "interfaces=\"127.0.0.1, lo, 127.0.0\" servers=\"host, host:70000\"");
    std::string lines;
    for (const std::string& line : warnings.lines()) {
        EXPECT_TRUE(line.starts_with("WARNING: ClientBackend: ")) << line;
        lines += line.substr(24);
    }
    EXPECT_EQ(
        lines, "transferData=\"perhaps\" is not used: expected yes or no; using yes\n"
               "deferred=\"\" is not used: expected yes or no; using no\n"
               "group=\"10.0.0.1\" is not used: expected a multicast address from 224.0.0.0 to "
               "239.255.255.255\n"
               "port=\"12x\" is not used: expected a number from 1 to 65535; using 33780\n"
               "ttl=\"256\" is not used: expected a number from 0 to 255; using 1\n"
               "interfaces=\"127.0.0\" is not used: expected the IPv4 address or the name of an "
               "interface\n"
               "servers=\"host\" is not used: expected HOST:PORT\n"
               "servers=\"host:70000\" is not used: expected HOST:PORT\n");
}

} // namespace Orvel::Test
