// Exceptions on the receive threads: the peer whose event caused one is disconnected, and a line
// logged.
#include "support/Capture.h"
#include "support/Loopback.h"
#include "support/RecordingBackend.h"
#include "support/TidyServer.h"

#include <Corvid/MultiServer.h>
#include <Orvel/CommandEvent.h>
#include <Orvel/Diagnostic.h>
#include <Orvel/Source.h>
#include <Vessa/Thread.h>

#include <algorithm>
#include <gtest/gtest.h>
#include <new>
#include <stdexcept>
#include <unistd.h>

namespace Orvel::Test {

namespace {

class FailingServer : public TidyServer {
public:
    ~FailingServer() override { stop(); }

protected:
    bool interceptEvent(Corvid::Event& event, Corvid::Communicator& /*from*/) override {
        switch (dynamic_cast<const CommandEvent&>(event).objectId) {
        case 666:
            throw std::bad_alloc();
        case 667:
            throw 7; // NOLINT: an exception without a text
        default:
            return false;
        }
    }
};

class FailingWorld : public TidyWorld {
public:
    ~FailingWorld() override { deleteAllBackends(); } // while the override is active
    void setSourceDuration(Source& /*source*/) override { throw std::bad_alloc(); }
};

void addClient(World& world, const Server& server) {
    const std::string port = std::to_string(server.multiServer().port());
    world.addBackend("client", ("port=1 servers=127.0.0.1:" + port).c_str());
}

} // namespace

TEST(Failure, CostsThePeerWhoseEventFailed) {
    LogCapture log(Log::Level::Fatal);
    const auto logged = [&](const std::string& line) {
        return until([&] { return std::ranges::count(log.lines(), line) == 1; }, [] {});
    };
    {
        FailingServer server;
        server.run();
        TidyWorld worlds[2];
        for (int i = 0; i < 2; ++i) {
            addClient(worlds[i], server);
            worlds[i].createEmitter({}, 666 + i);
            EXPECT_TRUE(logged(
                std::string("FATAL: Orvel::Server dropping a client because its event failed") +
                (i == 0 ? ": std::bad_alloc\n" : "\n")))
                << "the thread serves the next client";
        }
    }
    FailingServer server;
    FailingWorld world;
    world.createSource(1);
    addClient(world, server);
    const auto connections = [&] { return server.multiServer().counters().connections.size(); };
    const auto receive = [&] { server.receive(false); };
    ASSERT_TRUE(until([&] { return connections() == 1; }, receive));
    (new RecordingBackend(server))->setSourceDuration(*server.createSource(1), 2);
    EXPECT_TRUE(until([&] { return connections() == 0; }, receive));
    EXPECT_TRUE(logged(
        "FATAL: ClientBackend: dropping a server because its event failed: std::bad_alloc\n"));
}

TEST(Failure, OfAThreadIsReported) {
    struct Failing : Vessa::Thread {
        ~Failing() override { join(); }
        int main() override { throw std::bad_alloc(); }
    } thread;
    std::string reason;
    thread.setFailureHandler([&](const std::string& text) { reason = text; });
    ASSERT_TRUE(thread.start());
    EXPECT_EQ(thread.join(), -1);
    EXPECT_EQ(reason, "std::bad_alloc");
}

TEST(Failure, IsAValueForTheSinkOrElseALine) {
    const LogCapture log(Log::Level::Log);
    OutputCapture errors(STDERR_FILENO);
    TidyWorld world;
    const auto add = [&world](const char* kind) { world.addBackend(kind, nullptr); };
    std::vector<Diagnostic> taken;
    setDiagnosticSink([&](const Diagnostic& diagnostic) {
        taken.push_back(diagnostic);
        if (diagnostic.subject == "nested") {
            add("within"); // to the log, not to this sink again
            throw std::runtime_error("host");
        }
        return diagnostic.subject != "left";
    });
    Log::the().setLevel(Log::Level::Log); // is the log's alone
    add("taken");
    world.createSource()->setData(0, 0, 0, nullptr, 0);
    report({.level = Log::Level::Log, .subject = "left", .text = "of a host"});
    report({.level = Log::Level::Log, .subject = "nested", .text = "at which it throws"});
    setDiagnosticSink({});
    add("not taken");
    ASSERT_EQ(taken.size(), 6);
    EXPECT_EQ(taken[0].code, Diagnostic::Code::UnknownKind);
    EXPECT_EQ(taken[0].level, Log::Level::Fatal);
    EXPECT_EQ(taken[0].subject, "taken");
    EXPECT_EQ(taken[0].text, "Unknown Orvel backend taken; can not create");
    EXPECT_EQ(taken[2].code, Diagnostic::Code::SoundSet);
    EXPECT_EQ(taken[2].part.kind, Diagnostic::Part::Kind::Source);
    EXPECT_EQ(errors.take(), "");
    EXPECT_EQ(log.lines(), (Calls{"LOG: of a host\n", "LOG: at which it throws\n"}));
}

} // namespace Orvel::Test
