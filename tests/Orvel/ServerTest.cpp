// The server: the effect of each command on its world, and clients that connect, disconnect and
// misbehave.
#include "Corvid/NetSupport.h"
#include "support/Capture.h"
#include "support/EventText.h"
#include "support/Loopback.h"
#include "support/RecordingBackend.h"
#include "support/TemporaryFolder.h"
#include "support/TidyServer.h"

#include <Corvid/MultiServer.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <tuple>
#include <type_traits>

namespace Orvel::Test {

namespace {

/// Counts the events, and accepts sources from its clients.
class TestServer : public TidyServer {
public:
    ~TestServer() override { stop(); } // before its overrides are gone
    std::atomic<int> events = 0;

protected:
    bool interceptEvent(Corvid::Event& event, Corvid::Communicator& /*from*/) override {
        ++events;
        auto* data = dynamic_cast<SourceDataEvent*>(&event);
        return data != nullptr && createSource(data->objectId) != nullptr;
    }
};

/// Not an event of the library.
class ForeignEvent : public Corvid::Event {
public:
    [[nodiscard]] const Corvid::EventType* type() const override { return &kind; }
    static Corvid::Event* create() { return new ForeignEvent; }
    static const Corvid::EventType kind;
};
const Corvid::EventType ForeignEvent::kind("ForeignEvent", 900, &ForeignEvent::create);

template <class Event = CommandEvent>
std::string frame(short command = 0, short id = 0) {
    Event event;
    if constexpr (std::is_base_of_v<CommandEvent, Event>) {
        event.command = command;
        event.objectId = id;
    }
    std::vector<std::byte> bytes;
    EXPECT_TRUE(event.encode(bytes));
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

} // namespace

TEST(Server, ApplyEachCommandOrRefuseIt) {
    struct Row {
        int command;
        int id;
        short type = 200;
        Calls calls = {}; // the calls of the back ends; empty if it is refused
    };
    const Calls everything = {"setEmitterConnection 10", "destroyEmitter 10", "destroyEmitter 11",
                              "destroySource 1",         "destroySource 2",   "resetBackend"};
    // The world: source 1 with emitter 10 connected, source 2, emitter 11 unconnected.
    std::vector<Row> rows = {
        {10, 0, 200, everything},
        {11, 0, 200, {"setEnabled"}},
        {12, 0, 200, {"setEnabled"}},
        {13, 0, 201, {"setListenerTransform"}},
        {21, 1, 200, {"destroySource 1", "setEmitterConnection 10"}},
        {22, 1, 206, {"setSourceParam 1"}},
        {24, 1, 200, {"setSourceState 1", "setEmitterState 10"}},
        {25, 2, 200, {"setSourceState 2"}},
        {26, 2, 200, {"setSourceState 2"}},
        {30, 12, 202, {"createEmitter 12"}},
        {30, 0, 202, {"createEmitter 12"}},
        {31, 10, 200, {"setEmitterConnection 10", "destroyEmitter 10"}},
        {32, 10, 205, {"setEmitterParam 10"}},
        {33, 11, 203, {"setEmitterConnection 11"}},
        {34, 10, 201, {"setEmitterTransform 10"}},
        {35, 10, 204, {"setEmitterHull 10"}},
        {36, 10, 200, {"setEmitterState 10", "setSourceState 1"}},
        {37, 11, 200, {"setEmitterState 11"}},
        {38, 11, 200, {"setEmitterState 11"}},
    };
    for (const int command : {13, 22, 30, 32, 33, 34, 35}) {
        rows.push_back({command, 10}); // of the wrong class
    }
    for (const int command : {21, 24, 25, 26, 31, 36, 37, 38}) {
        rows.push_back({command, 99}); // unknown part
    }
    rows.insert(rows.end(), {{20, 5, 207}, {32, 10, 201}, {22, 10, 206}, {34, 1, 201}});
    for (const int command : {-1, 0, 9, 18, 19, 23, 27, 29, 43, 32767}) {
        rows.push_back({command, 1, 208}); // unknown command
    }
    for (const Row& row : rows) {
        const std::string number = std::to_string(row.command);
        SCOPED_TRACE(number);
        TestServer server;
        Source* source = server.createSource(1);
        server.createEmitter({}, 10)->setSource(source);
        server.createEmitter({}, 11);
        server.createSource(2);
        auto* recorder = new RecordingBackend(server);
        const LogCapture log;
        const auto* type = Corvid::EventType::find(row.type);
        const std::unique_ptr<CommandEvent> event(dynamic_cast<CommandEvent*>(type->create()));
        event->address(static_cast<Command>(row.command), row.id);
        if (auto* connection = dynamic_cast<EmitterConnectionEvent*>(event.get())) {
            connection->sourceId = 2;
        } else if (auto* transform = dynamic_cast<TransformEvent*>(event.get())) {
            transform->position = {1, 2, 3};
        }
        EXPECT_EQ(server.dispatchEvent(event.get()), !row.calls.empty());
        EXPECT_EQ(recorder->take(), row.calls);
        const std::string line = row.type == 208
                                     ? "Unkown command ID: " + number
                                     : "Got invalid Event: " + type->name() + '/' + number + '/' +
                                           std::to_string(row.id) + "/3378";
        EXPECT_EQ(log.lines(), row.calls.empty() ? Calls{"FATAL: " + line + '\n'} : Calls{});
        EXPECT_EQ(server.enabled(), row.command != CmdDisable);
    }
}

TEST(Server, LimitTheLinesThatPeersCause) {
    const LogCapture log;
    {
        TestServer server;
        CommandEvent event(CmdPlaySource, 99);
        for (int i = 0; i < 1500; ++i) {
            server.dispatchEvent(&event);
        }
    }
    EXPECT_LE(log.lines().size(), 1001U);
    EXPECT_TRUE(log.lines().back().starts_with("WARNING: 5")); // about 500; some were earlier
}

TEST(Server, MakeAnIdOfAnyText) {
    const std::pair<const char*, short> rows[] = {
        {nullptr, 0},  {"", 0},         {"ab", 195},         {"-3", -3},
        {" 12 m", 12}, {"70000", 4464}, {"65536", 0},        {"00", 96},
        {"\xff", -1},  {"-", 45},       {"4294967296", 538}, {"99999999999999999999", -1},
    };
    TestServer server;
    for (const auto& [text, id] : rows) {
        server.setId(0); // a number
        server.setId(text);
        EXPECT_EQ(server.id(), id) << (text == nullptr ? "null" : text);
    }
}

TEST(Server, NameStoredDataAfterTheSource) {
    const TemporaryFolder folder;
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(folder.path());
    std::ofstream("from") << "bytes";
    SourceDataEvent event;
    event.fileName = "from";
    const LogCapture log;
    ASSERT_TRUE(event.loadData());
    const std::tuple<short, const char*, std::string> rows[] = {
        {12, "x.ogg", "OrvelSRC12.ogg"},
        {12, "x", "OrvelSRC12"},
        {-5, "a.b/c.wav", "OrvelSRC-5.wav"},
        {7, "a/b.c/d", ""}, // no file
    };
    for (const auto& [id, fileName, stored] : rows) {
        event.objectId = id;
        event.fileName = fileName;
        std::string name;
        EXPECT_EQ(TestServer().writeLocalData(event, name), !stored.empty()) << fileName;
        EXPECT_EQ(name, stored);
        EXPECT_EQ(std::filesystem::exists(name), !stored.empty());
    }
    std::filesystem::current_path(before);
}

TEST(ServerNetwork, ReturnBesideAClientThatNeverPauses) {
    TestServer server;
    constexpr int kSent = 5 * Server::kMaxEventsPerReceive;
    std::string left = greeting();
    for (int i = 0; i < kSent; ++i) {
        left += frame(CmdEnable);
    }
    RawSocket client(server.multiServer().port());
    int most = 0;
    ASSERT_TRUE(until(
        [&] { return server.events == kSent; },
        [&] {
            left.erase(0, client.send(left));
            most = std::max(most, server.receive(false));
        }));
    EXPECT_EQ(most, Server::kMaxEventsPerReceive);
}

/// A peer that reconnects while the server does not receive, with the same instance or another.
TEST(ServerNetwork, ApplyNothingThatAnEarlierConnectionLeftUnread) {
    for (const char instance : {'i', 'j'}) {
        TestServer server;
        const auto serve = [&](const auto& done) {
            server.run();
            EXPECT_TRUE(until(done, [] {}));
            server.stop();
        };
        const std::uint16_t port = server.multiServer().port();
        auto old = std::make_unique<RawSocket>(port, greeting() + frame(CmdResetBackend));
        serve([&] { return server.events == 1; });
        std::string left;
        for (short id = 1000; id < 6000; ++id) {
            left += frame<CreateEmitterEvent>(CmdCreateEmitter, id);
        }
        old->send(left);
        if (instance != 'i') {
            old = nullptr; // disconnected; with the same instance that has no effect
        }
        const RawSocket anew(
            port, greeting(2, instance) + frame(CmdResetBackend) +
                      frame<CreateEmitterEvent>(CmdCreateEmitter, 1));
        serve([&] {
            const auto counters = server.multiServer().counters();
            return counters.connected == 2 && counters.connections.size() == 1 &&
                   counters.connections[0].eventsIn == 2;
        });
        EXPECT_EQ(server.emitters().size(), 1U) << instance;
    }
}

TEST(ServerNetwork, DropOnlyBadClientsAndApplyNothingOnceStopped) {
    TestServer server;
    LogCapture log(Log::Level::Fatal);
    server.run();
    server.run();
    EXPECT_EQ(log.take(), Calls{"FATAL: Orvel::Server thread is already running\n"});
    RawSocket good(server.multiServer().port(), greeting(2, 'g') + frame<ForeignEvent>());
    ASSERT_TRUE(until([&] { return server.receivedEvents() == 1; }, [] {}));
    EXPECT_EQ(
        log.take(), Calls{"FATAL: Orvel::Server got Corvid::Event which is not a Orvel::Event\n"});

    const RawSocket bad( // the parts of a lost client stay
        server.multiServer().port(), greeting(2, 'b') + frame<SourceDataEvent>(CmdCreateSource, 8) +
                                         "\4" + std::string(7, '\0')); // an unknown type
    ASSERT_TRUE(until([&] { return !log.lines().empty(); }, [] {}));
    EXPECT_EQ(log.take(), Calls{"FATAL: Orvel::Server lost client\n"});

    const std::string play = frame(CmdPlaySource, 8);
    for (int count = 3; count < 7; count += 2) {
        good.send(play);
        ASSERT_TRUE(until([&] { return server.events == count; }, [] {}));
        server.stop();
        good.send(play);
        ASSERT_EQ(server.events, count) << "nothing is applied after stop()";
        server.run();
        ASSERT_TRUE(until([&] { return server.receivedEvents() == count + 1; }, [] {}));
    }
    server.stop();
    EXPECT_EQ(server.getSource(8)->state(), WorldPart::PLAY);
    EXPECT_TRUE(log.lines().empty()) << "nothing was invalid";
}

} // namespace Orvel::Test
