// The server: what each command does to its world, and how clients come, go and misbehave.
#include "support/Capture.h"
#include "support/EventText.h"
#include "support/Loopback.h"
#include "support/RecordingBackend.h"
#include "support/TemporaryFolder.h"

#include <Corvid/MultiClient.h>
#include <Corvid/MultiServer.h>
#include <Orvel/Server.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <thread>

namespace Orvel::Test {

namespace {

/// Leaves nothing behind and hands each event to a function.
class TestServer : public Server {
public:
    TestServer() { setMulticastPort(testPort()); }
    ~TestServer() override {
        stop();
        clearWorld();
        deleteAllBackends();
    }
    std::function<bool(Corvid::Event&, Corvid::Communicator&)> onEvent;

protected:
    bool interceptEvent(Corvid::Event& event, Corvid::Communicator& from) override {
        return onEvent && onEvent(event, from);
    }
};

/// A client without a world, which sends what it is told to the server.
class PlainClient : public Corvid::MultiClient {
public:
    explicit PlainClient(const Server& server)
        : MultiClient(2), port_(server.multiServer().port()) {
        multicast().setPort(static_cast<std::uint16_t>(testPort() ^ 1U)); // finds nobody
        open();
        connectToServer("127.0.0.1", port_);
        thread_ = std::thread([this] {
            while (waitForCommunicators()) {
                Corvid::Communicator* connection = nullptr;
                Corvid::Event* event = nullptr;
                if (receiveCommunicator(connection) && !Corvid::Event::receive(connection, event)) {
                    removeCommunicator(connection);
                    delete connection;
                    removeServer("127.0.0.1", port_);
                }
                delete event;
            }
        });
    }
    ~PlainClient() override {
        breakWait();
        thread_.join();
        close();
    }
    [[nodiscard]] bool connected() const { return !counters().connections.empty(); }

private:
    const unsigned short port_;
    std::thread thread_;
};

/// No event of the library's.
class ForeignEvent : public Corvid::Event {
public:
    [[nodiscard]] const Corvid::EventType* type() const override { return &kind; }
    static Corvid::Event* create() { return new ForeignEvent; }
    static const Corvid::EventType kind;
};
const Corvid::EventType ForeignEvent::kind("ForeignEvent", 900, &ForeignEvent::create);

template <class EventClass>
std::unique_ptr<CommandEvent> make(int command, int id, void (*fill)(EventClass&)) {
    auto event = std::make_unique<EventClass>();
    event->address(static_cast<Command>(command), id);
    if (fill != nullptr) {
        fill(*event);
    }
    return event;
}

std::unique_ptr<CommandEvent> plain(int command, int id) {
    return make<CommandEvent>(command, id, nullptr);
}

} // namespace

TEST(Server, ApplyEachCommandOrRefuseIt) {
    struct Row {
        const char* what;
        std::unique_ptr<CommandEvent> event;
        Calls calls; // what reaches the back ends
        std::string line;
    };
    const auto moved = [](TransformEvent& e) { e.position = {1, 2, 3}; };
    const auto toSource2 = [](EmitterConnectionEvent& e) { e.sourceId = 2; };
    const auto toNowhere = [](EmitterConnectionEvent& e) { e.sourceId = 77; };
    const auto labelled = [](CreateEmitterEvent& e) { e.labels = {"front"}; };
    const auto invalid = [](const char* type, int command, int id) {
        return "FATAL: Got invalid Event: " + std::string(type) + '/' + std::to_string(command) +
               '/' + std::to_string(id) + "/3378\n";
    };
    std::vector<Row> rows;
    const auto row = [&rows](
                         const char* what, std::unique_ptr<CommandEvent> event, Calls calls,
                         std::string line = "") {
        rows.push_back({what, std::move(event), std::move(calls), std::move(line)});
    };
    // The world: source 1 with emitter 10 connected, source 2, emitter 11 alone.
    row("reset", plain(10, 0),
        {"setEmitterConnection 10", "destroyEmitter 10", "destroyEmitter 11", "destroySource 1",
         "destroySource 2", "resetBackend"});
    row("enable", plain(11, 0), {"setEnabled"});
    row("disable", plain(12, 0), {"setEnabled"});
    row("listener", make<TransformEvent>(13, 0, moved), {"setListenerTransform"});
    row("destroy source", plain(21, 1), {"destroySource 1", "setEmitterConnection 10"});
    row("source parameters", make<SourceParamEvent>(22, 1, nullptr), {"setSourceParam 1"});
    row("play source", plain(24, 1), {"setSourceState 1", "setEmitterState 10"});
    row("pause source", plain(25, 2), {"setSourceState 2"});
    row("stop source", plain(26, 2), {"setSourceState 2"});
    row("create emitter", make<CreateEmitterEvent>(30, 12, labelled), {"createEmitter 12"});
    row("create emitter -1", make<CreateEmitterEvent>(30, -1, nullptr), {"createEmitter -1"});
    row("create emitter, id chosen", make<CreateEmitterEvent>(30, 0, nullptr),
        {"createEmitter 12"});
    row("destroy emitter", plain(31, 10), {"setEmitterConnection 10", "destroyEmitter 10"});
    row("parameters", make<EmitterParamEvent>(32, 10, nullptr), {"setEmitterParam 10"});
    row("connect", make<EmitterConnectionEvent>(33, 11, toSource2), {"setEmitterConnection 11"});
    row("disconnect", make<EmitterConnectionEvent>(33, 10, nullptr), {"setEmitterConnection 10"});
    row("connect to nothing", make<EmitterConnectionEvent>(33, 10, toNowhere),
        {"setEmitterConnection 10"});
    row("move", make<TransformEvent>(34, 10, moved), {"setEmitterTransform 10"});
    row("hull", make<EmitterHullEvent>(35, 10, nullptr), {"setEmitterHull 10"});
    row("play", plain(36, 10), {"setEmitterState 10", "setSourceState 1"});
    row("pause", plain(37, 11), {"setEmitterState 11"});
    row("stop", plain(38, 11), {"setEmitterState 11"});

    row("create source", make<SourceDataEvent>(20, 5, nullptr), {},
        invalid("SourceDataEvent", 20, 5));
    for (const int command : {13, 22, 30, 32, 33, 34, 35}) {
        row("wrong class", plain(command, 10), {}, invalid("CommandEvent", command, 10));
    }
    row("another class", make<TransformEvent>(32, 10, nullptr), {},
        invalid("TransformEvent", 32, 10));
    for (const int command : {21, 24, 25, 26, 31, 36, 37, 38}) {
        row("no such part", plain(command, 99), {}, invalid("CommandEvent", command, 99));
    }
    row("no such source", make<SourceParamEvent>(22, 10, nullptr), {},
        invalid("SourceParamEvent", 22, 10));
    row("no such emitter", make<TransformEvent>(34, 1, moved), {},
        invalid("TransformEvent", 34, 1));
    for (const int command : {-1, 0, 9, 14, 19, 23, 27, 29, 39, 32767}) {
        row("unknown", make<SourceDurationEvent>(command, 1, nullptr), {},
            "FATAL: Unkown command ID: " + std::to_string(command) + '\n');
    }

    for (const Row& r : rows) {
        SCOPED_TRACE(std::string(r.what) + ' ' + std::to_string(r.event->command));
        TestServer server;
        Source* source = server.createSource(1);
        server.createSource(2);
        server.createEmitter({}, 10)->setSource(source);
        server.createEmitter({}, 11);
        auto* recorder = new RecordingBackend(server);
        const LogCapture log;
        EXPECT_EQ(server.dispatchEvent(r.event.get()), r.line.empty());
        EXPECT_EQ(recorder->take(), r.calls);
        EXPECT_EQ(log.lines(), r.line.empty() ? Calls{} : Calls{r.line});
        EXPECT_EQ(server.enabled(), r.event->command != CmdDisable);
    }
    EXPECT_FALSE(TestServer().dispatchEvent(nullptr));
}

TEST(Server, MakeAnIdOfAnyText) {
    const struct {
        const char* text;
        short id;
    } rows[] = {
        {nullptr, 0},        {"", 0},         {"0", 48},
        {"ab", 195},         {"-3", -3},      {"12 metres", 12},
        {" 7", 7},           {"70000", 4464}, {"65536", 0},
        {"00", 96},          {"\xff", -1},    {"x1", 169},
        {"4294967296", 538}, {"-", 45},       {"99999999999999999999", -1},
    };
    TestServer server;
    for (const auto& row : rows) {
        server.setId(short{99});
        server.setId(row.text);
        EXPECT_EQ(server.id(), row.id) << (row.text == nullptr ? "null" : row.text);
    }
}

TEST(Server, NameStoredDataAfterTheSource) {
    const TemporaryFolder folder;
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(folder.path());
    std::ofstream("from") << "bytes";
    const struct {
        int id;
        const char* fileName;
        const char* stored; // empty: not at all
    } rows[] = {
        {12, "x.ogg", "OrvelSRC12.ogg"},
        {12, "x", "OrvelSRC12"},
        {-5, "a.b/c.wav", "OrvelSRC-5.wav"},
        {7, ".", "OrvelSRC7."},
        {7, "a/b.c/d", ""},
    };
    TestServer server;
    const LogCapture log;
    for (const auto& row : rows) {
        SourceDataEvent event;
        event.objectId = static_cast<short>(row.id);
        event.fileName = "from";
        ASSERT_TRUE(event.loadData());
        event.fileName = row.fileName;
        std::string name = "untouched";
        EXPECT_EQ(server.writeLocalData(event, name), *row.stored != '\0') << row.fileName;
        EXPECT_EQ(name, *row.stored == '\0' ? "untouched" : row.stored);
        EXPECT_EQ(std::filesystem::exists(name), *row.stored != '\0');
    }
    SourceDataEvent empty;
    std::string name;
    EXPECT_FALSE(server.writeLocalData(empty, name));
    std::filesystem::current_path(before);
}

TEST(ServerNetwork, CountsForeignEventsAndDropsOnlyBadClients) {
    TestServer server;
    PlainClient good(server);
    PlainClient bad(server);
    const auto receive = [&server] { server.receive(false); };
    ASSERT_TRUE(until([&] { return good.connected() && bad.connected(); }, receive));
    EXPECT_EQ(server.receive(false), 0);
    EXPECT_EQ(server.receivedEvents(), 0);

    LogCapture log(Log::Level::Fatal);
    ForeignEvent foreign;
    foreign.send(&good);
    ASSERT_TRUE(until([&] { return server.receivedEvents() == 1; }, receive));
    EXPECT_EQ(
        log.take(), Calls{"FATAL: Orvel::Server got Corvid::Event which is not a Orvel::Event\n"});

    CreateEmitterEvent create;
    create.address(CmdCreateEmitter, 3);
    create.send(&bad);
    const std::byte unknownType[8] = {std::byte{4}};
    bad.sendFrame(unknownType, sizeof(unknownType));
    ASSERT_TRUE(until([&] { return !log.lines().empty(); }, receive));
    EXPECT_EQ(log.take(), Calls{"FATAL: Orvel::Server lost client\n"});
    EXPECT_EQ(server.receivedEvents(), 2);
    EXPECT_NE(server.getEmitter(3), nullptr) << "what a lost client made stays";

    create.address(CmdCreateEmitter, 4);
    create.send(&good);
    EXPECT_TRUE(until([&] { return server.getEmitter(4) != nullptr; }, receive));
    EXPECT_EQ(server.multiServer().counters().connections.size(), 1U);
}

TEST(ServerNetwork, LetsADerivedClassTakeEventsOver) {
    TestServer server;
    PlainClient client(server);
    std::vector<std::string> seen;
    server.onEvent = [&](Corvid::Event& event, Corvid::Communicator& from) {
        auto* data = dynamic_cast<SourceDataEvent*>(&event);
        seen.push_back(event.type()->name() + ' ' + std::to_string(from.id()));
        return data != nullptr && server.createSource(data->objectId) != nullptr;
    };
    client.setId(5);
    const auto receive = [&server] { server.receive(false); };
    ASSERT_TRUE(until([&] { return client.connected(); }, receive));
    const LogCapture log(Log::Level::Fatal);
    SourceDataEvent data;
    data.address(CmdCreateSource, 8);
    data.send(&client);
    CommandEvent play;
    play.address(CmdPlaySource, 8);
    play.send(&client);
    ASSERT_TRUE(until([&] { return server.receivedEvents() == 2; }, receive));
    ASSERT_NE(server.getSource(8), nullptr);
    EXPECT_EQ(server.getSource(8)->state(), WorldPart::PLAY);
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(seen.size(), 2U);
    EXPECT_EQ(seen.front().substr(0, 16), "SourceDataEvent ");
}

TEST(ServerNetwork, ReceivesOnItsThreadUntilStopped) {
    TestServer server;
    std::atomic<int> events = 0;
    server.onEvent = [&events](Corvid::Event&, Corvid::Communicator&) {
        ++events;
        return true;
    };
    const LogCapture log(Log::Level::Fatal);
    server.run();
    server.run();
    EXPECT_EQ(log.lines(), Calls{"FATAL: Orvel::Server thread is already running\n"});
    PlainClient client(server);
    ASSERT_TRUE(until([&] { return client.connected(); }, [] {}));
    CommandEvent event(CmdEnable, 0);
    for (int round = 1; round <= 3; ++round) {
        event.send(&client);
        ASSERT_TRUE(until([&] { return events == 2 * round - 1; }, [] {})) << round;
        server.stop();
        server.stop(); // nothing to do
        event.send(&client);
        ASSERT_EQ(events, 2 * round - 1) << "nothing is applied after stop()";
        server.run();
        ASSERT_TRUE(until([&] { return server.receivedEvents() == 2 * round; }, [] {})) << round;
    }
}

} // namespace Orvel::Test
