#include "NetSupport.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <gtest/gtest.h>
#include <list>
#include <memory>
#include <numeric>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <thread>

namespace {

using Corvid::Communicator;
using Orvel::Test::freePort;
using Orvel::Test::loopback;
using Orvel::Test::RawSocket;
using Orvel::Test::sendTo;
using namespace std::chrono_literals;
using namespace std::string_literals;

constexpr std::size_t kMaxConnections = Corvid::MultiCommunicator::kMaxConnections;
constexpr double kNever = 3600.0; // a search interval that excludes later searches

std::vector<std::uint32_t> upTo(std::uint32_t count) {
    std::vector<std::uint32_t> numbers(count);
    std::iota(numbers.begin(), numbers.end(), 0);
    return numbers;
}

class Net : public testing::Test {
protected:
    std::unique_ptr<Client> newClient(double interval = kNever) {
        auto client = std::make_unique<Client>();
        client->multicast().setPort(port_);
        client->setSearchInterval(interval);
        EXPECT_TRUE(client->open());
        return client;
    }
    std::unique_ptr<Server> newServer(unsigned short port = 0, bool announce = true) {
        auto server = std::make_unique<Server>();
        server->multicast().setPort(port_);
        EXPECT_TRUE(server->open("", port, announce));
        return server;
    }
    /// A client and a server that are connected.
    void connect() {
        server_ = newServer();
        client_ = newClient();
        ASSERT_TRUE(until(
            [&] { return client_->connections() == 1 && server_->connections() == 1; }, *server_,
            *client_));
    }
    /// Connects a peer that reads nothing.
    std::unique_ptr<RawSocket> connectLazy() {
        auto lazy = std::make_unique<RawSocket>(server_->port(), greeting());
        EXPECT_TRUE(until([&] { return server_->connections() == 2; }, *server_, *client_));
        return lazy;
    }
    const std::uint16_t port_ = freePort(SOCK_DGRAM);
    std::unique_ptr<Server> server_;
    std::unique_ptr<Client> client_;
};

TEST_F(Net, ConnectsOnceHoweverOftenAServerIsSeen) {
    auto server = newServer();
    const auto client = newClient(0.05);
    for (const char* host : {"127.0.0.1", "localhost", "127.0.0.2"}) {
        client->connectToServer(host, server->port());
    }
    server->multicast().setInterfaces(
        {Corvid::InetAddress::getByAddress("127.0.0.1"),
         Corvid::InetAddress::getByAddress("127.0.0.2")});
    ASSERT_TRUE(until([&] { return client->connections() == 1; }, *server, *client));
    // After three refusals the server's other addresses have been tried.
    ASSERT_TRUE(until([&] { return server->counters().refused >= 2; }, *server, *client));
    EXPECT_EQ(client->counters().connected, 1U);
    EXPECT_EQ(server->counters().connected, 1U);
    EXPECT_EQ(server->lost, 0);
    EXPECT_EQ(client->foundServers().size(), 1U);
    server = nullptr;
    EXPECT_TRUE(until([&] { return client->foundServers().empty(); }, *client)) << "forgotten";
}

TEST_F(Net, ReachesANamedServerAsSoonAsItIsThere) {
    const auto client = newClient(0.05);
    const std::uint16_t port = freePort(SOCK_STREAM);
    client->connectToServer("localhost", port);
    ASSERT_TRUE(until([&] { return client->hasLine("cannot reach the server"); }, *client));
    auto server = newServer(port, false);
    ASSERT_TRUE(until([&] { return client->connections() == 1; }, *server, *client));
    EXPECT_EQ(client->lines.size(), 2U) << "failed attempts are told once";
    client->removeServer("localhost", port);
    server = nullptr;
    ASSERT_TRUE(until([&] { return client->lost == 1; }, *client));
    EXPECT_EQ(client->counters().lastDrops.at(0).reason, "the peer closed the connection");
    server = newServer(port, false);
    const auto other = newClient(0.05);
    other->connectToServer("127.0.0.1", port);
    ASSERT_TRUE(until([&] { return other->connections() == 1; }, *server, *client, *other));
    EXPECT_EQ(client->connections(), 0U);
}

TEST_F(Net, TakesUpSettingsChangedAfterOpening) {
    const std::uint16_t otherPort = freePort(SOCK_DGRAM);
    const auto server = newServer();
    const auto client = newClient();
    server->multicast().setPort(otherPort);
    server->setId(12);
    server->poll();
    server->multicast().setAddress(Corvid::InetAddress::getByAddress("239.255.1.2"));
    server->poll();
    client->poll();
    client->multicast().setPort(otherPort);
    client->multicast().setAddress(Corvid::InetAddress::getByAddress("239.255.1.2"));
    ASSERT_TRUE(until([&] { return client->connections() == 1; }, *server, *client));
    client->multicast().setTtl(256);
    EXPECT_TRUE(client->hasLine("the TTL 256 is not from 0 to 255; 255 is used"));
    EXPECT_EQ(client->multicast().ttl(), 255);
    EXPECT_FALSE(server->multicast().setAddress(Corvid::InetAddress::getByAddress("10.0.0.1")));
    EXPECT_TRUE(server->hasLine("10.0.0.1 is not a multicast address"));
    const auto found = client->foundServers();
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].id, 12);
    EXPECT_EQ(found[0].port, server->port());
}

TEST_F(Net, TakesClientsOfItsInterfacesOnly) {
    const auto server = newServer();
    server->multicast().setInterfaces({Corvid::InetAddress::getByAddress("127.0.0.1")});
    RawSocket stranger(server->port(), greeting(2, 's'), 0, INADDR_LOOPBACK + 1);
    EXPECT_TRUE(until([&] { return stranger.isClosed(); }, *server));
    const RawSocket friendly(server->port(), greeting());
    EXPECT_TRUE(until([&] { return server->connections() == 1; }, *server));
    EXPECT_EQ(server->counters().refused, 1U);
}

/// A greeting, then so many times the words.
std::string
greetingAnd(const std::vector<std::uint32_t>& words, int times = 1, std::uint16_t instance = 'i') {
    std::string bytes = greeting(2, instance);
    while (times-- > 0) {
        bytes.append(reinterpret_cast<const char*>(words.data()), 4 * words.size());
    }
    return bytes;
}

std::string datagram(char kind, const std::string& nonce, char instance = 1) {
    return std::string("ORVELFND\2\0", 10) + kind + '\0' + std::string(12, instance) + nonce +
           std::string(8, 1);
}

TEST_F(Net, IgnoresDatagramsThatItHasNotAskedFor) {
    const std::uint32_t group = ntohl(::inet_addr(Corvid::Multicast::kDefaultAddress));
    const int descriptor = groupSocket(group, port_);
    char query[64];
    sockaddr_in asker = {};
    socklen_t length = sizeof asker;
    const auto isAsked = [&] {
        return ::recvfrom(
                   descriptor, query, sizeof query, MSG_DONTWAIT,
                   reinterpret_cast<sockaddr*>(&asker), &length) == 36;
    };
    {
        const auto seeker = newClient(0.05);
        for (int queries = 0; queries < 3; ++queries) {
            ASSERT_TRUE(until(isAsked, *seeker)) << "the first ones may get lost";
        }
    }
    while (isAsked()) {
    }
    const auto client = newClient();
    ASSERT_TRUE(until(isAsked, *client));
    const std::string nonce(query + 24, 4);
    const sockaddr_in everybody = loopback(port_, group);
    const std::pair<std::string, const sockaddr_in&> rows[] = {
        {"ORVELFND", everybody},           {std::string(36, 'x'), everybody},
        {datagram(4, nonce), asker},    // unknown kind
        {datagram(2, nonce, 0), asker}, // port 0
        {datagram(2, nonce) + 'x', asker}, {datagram(2, "none"), asker},
        {datagram(2, nonce), everybody}, // an answer must be unicast
        {datagram(3, nonce), asker},     // an announcement must be multicast
        {datagram(1, nonce), asker},       {std::string(60000, 'O'), everybody}};
    for (const auto& [bytes, to] : rows) {
        sendTo(descriptor, bytes, to);
    }
    const auto ignored = [&](std::size_t count) {
        return until([&] { return client->counters().datagramsIgnored == count; }, *client);
    };
    ASSERT_TRUE(ignored(std::size(rows)));
    EXPECT_TRUE(client->foundServers().empty());

    const auto server = newServer();
    ASSERT_TRUE(until([&] { return client->connections() == 1; }, *server, *client));
    // A datagram from another network needs an interface that is not searched.
    sockaddr_in own = loopback(9, 0xC0000201);
    length = sizeof own;
    const int router = ::socket(AF_INET, SOCK_DGRAM, 0);
    if (::connect(router, reinterpret_cast<const sockaddr*>(&own), sizeof own) == 0 &&
        ::getsockname(router, reinterpret_cast<sockaddr*>(&own), &length) == 0) {
        const int stranger = groupSocket(ntohl(own.sin_addr.s_addr), 0);
        sendTo(stranger, datagram(1, nonce), everybody);
        EXPECT_TRUE(until([&] { return server->counters().datagramsIgnored == 1; }, *server));
        sendTo(stranger, datagram(3, nonce), everybody);
        EXPECT_TRUE(ignored(std::size(rows) + 1));
        ::close(stranger);
    }
    ::close(router);

    client->setConnecting(false);
    const std::size_t before = client->counters().datagramsIgnored;
    const auto find = [&](char begin, char end, std::size_t allIgnored, std::size_t found) {
        for (char instance = begin; instance < end; ++instance) {
            sendTo(descriptor, datagram(2, nonce, instance), asker);
        }
        EXPECT_TRUE(ignored(before + allIgnored));
        EXPECT_EQ(client->foundServers().size(), found);
    };
    client->setMaxPerAddress(2);
    find(2, 4, 1, 2);
    client->setMaxPerAddress(kMaxConnections);
    client->setMaxFoundServers(4);
    find(4, 8, 3, 4);
    ::close(descriptor);
}

TEST_F(Net, MeasuresAClockByDatagramsThatKnowTheNonceElseOverTheConnection) {
    connect();
    const auto now = [] { return std::chrono::steady_clock::now().time_since_epoch() / 1ns; };
    std::int64_t answered = 0;
    client_->onFrame = [&](Communicator* peer, auto) {
        answered = now();
        sendNumber(*peer, client_->numbers.back());
    };
    server_->onFrame = [&](Communicator* peer, auto) {
        peer->takeClockAnswer(server_->numbers.back(), answered, answered);
    };
    const Communicator::ClockOffer offer = client_->newest->clockOffer();
    ASSERT_NE(offer.port, 0);
    const struct {
        Communicator::ClockOffer offer;
        bool byConnection;
    } rows[] = {{{offer.nonce + 2, offer.port}, true}, {offer, false}, {{offer.nonce, 0}, true}};
    for (const auto& row : rows) {
        server_->measureClock(*server_->newest, row.offer, [&](std::uint32_t number) {
            sendNumber(*server_->newest, number);
        });
        EXPECT_TRUE(until(
            [&] {
                const Corvid::PeerClock clock = server_->newest->clock();
                return clock.samples > 5 && clock.byConnection == row.byConnection;
            },
            *server_, *client_));
        const Corvid::PeerClock clock = server_->newest->clock();
        EXPECT_LE(std::abs(static_cast<double>(clock.offset)) * 1e-9, clock.error)
            << "both are this machine's";
    }
    EXPECT_GT(client_->counters().datagramsIgnored, 0U) << "those with the wrong nonce";
}

TEST_F(Net, KeepsPlacesAndDescriptorsForOthers) {
    const auto server = newServer(0, false);
    server->setMaxPerAddress(2);
    RawSocket busy(server->port(), greetingAnd({8, 0, 7}));
    RawSocket idle(server->port(), greeting(2, 'j'));
    ASSERT_TRUE(until([&] { return server->connections() == 2; }, *server));
    std::list<RawSocket> others;
    for (int i = 0; i < 30; ++i) {
        others.emplace_back(server->port());
    }
    ASSERT_TRUE(until([&] { return server->counters().refused >= 29; }, *server));
    // Once the idle one has had its time, it gives way.
    ASSERT_TRUE(
        until([&] { return others.emplace_back(server->port()), idle.isClosed(); }, *server));
    EXPECT_FALSE(busy.isClosed());

    server->setMaxPerAddress(kMaxConnections);
    ASSERT_TRUE(until([&] { return server->connections() == 1; }, *server));
    const RawSocket late(server->port(), greeting(2, 'l'));
    rlimit limit = {};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none = {0, limit.rlim_max};
    // UBSan needs descriptors for types that it has not seen yet, so this is not at the beginning.
    ::setrlimit(RLIMIT_NOFILE, &none);
    for (int i = 0; i < 10; ++i) {
        server->poll();
    }
    EXPECT_EQ(server->connections(), 1);
    ::setrlimit(RLIMIT_NOFILE, &limit);
    ASSERT_TRUE(until([&] { return server->connections() == 2; }, *server));

    const rlimit few = {static_cast<rlim_t>(::dup(0)) + 160, limit.rlim_max};
    for (char instance = 0; instance < 100; ++instance) {
        others.emplace_back(server->port(), greeting(2, instance));
    }
    const std::uint64_t refused = server->counters().refused;
    ::setrlimit(RLIMIT_NOFILE, &few);
    EXPECT_TRUE(until([&] { return server->counters().refused >= refused + 10; }, *server));
    EXPECT_GE(::dup(0), 0);
    ::setrlimit(RLIMIT_NOFILE, &limit);
    server->close();
    EXPECT_LE(server->lines.size(), 60U);
    EXPECT_TRUE(server->hasLine(" more lines about refused peers were left out"));
}

TEST_F(Net, SendsReplayFirstThenEverythingInOrder) {
    constexpr std::uint32_t kReplay = 5000;
    constexpr std::uint32_t kFirst = 1'000'000;
    const auto client = newClient();
    client->onAdd = [](Communicator* communicator) {
        for (std::uint32_t i = 0; i < kReplay; ++i) {
            sendNumber(*communicator, i, 12 + i % 300);
        }
        return true;
    };
    std::atomic<bool> stop = false;
    std::uint32_t last = kFirst;
    std::thread sender([&] {
        for (; !stop; ++last) {
            sendNumber(*client, last, 12 + last % 100);
            if (last % 64 == 0) {
                std::this_thread::yield();
            }
        }
    });
    std::vector<std::unique_ptr<Server>> servers;
    for (int i = 0; i < 3; ++i) {
        servers.push_back(newServer());
        auto& server = *servers.back();
        EXPECT_TRUE(until([&] { return server.numbers.size() > 2 * kReplay; }, server, *client));
    }
    stop = true;
    sender.join();
    for (const auto& server : servers) {
        const auto& numbers = server->numbers;
        ASSERT_TRUE(until([&] { return numbers.back() == last - 1; }, *server, *client));
        for (std::size_t i = 0; i < numbers.size(); ++i) {
            ASSERT_EQ(numbers[i], i < kReplay ? i : numbers[kReplay] + i - kReplay);
        }
    }
}

TEST_F(Net, KeepsOrderBetweenFramesForOneAndForAll) {
    connect();
    for (std::uint32_t number = 0; number < 6; ++number) {
        // Large enough to span chunks, the pieces of a call and the socket's buffer.
        const std::uint32_t size = 12 + number * 1'500'000;
        EXPECT_TRUE(
            number % 2 == 0 ? sendNumber(*client_, number, size)
                            : sendNumber(*client_->newest, number, size));
    }
    ASSERT_TRUE(until([&] { return server_->numbers.size() == 6; }, *server_, *client_));
    EXPECT_EQ(server_->numbers, upTo(6));
    EXPECT_EQ(server_->counters().bytesIn, 72U + 15 * 1'500'000);
    EXPECT_EQ(client_->counters().bytesOut, 72U + 15 * 1'500'000);
}

struct Hostile {
    const char* name;
    std::string bytes;
    int sockets = 1;
    bool drip = false; // byte by byte
    bool staysOpen = false;
};

class HostilePeer : public Net, public testing::WithParamInterface<Hostile> {};

TEST_P(HostilePeer, DoesNotDisturbAGoodOne) {
    const Hostile& hostile = GetParam();
    connect();
    std::list<RawSocket> sockets;
    for (int i = 0; i < hostile.sockets; ++i) {
        sockets.emplace_back(server_->port());
        server_->poll();
    }
    std::uint32_t number = 0;
    const auto exchange = [&] {
        sendNumber(*client_, number++);
        return until(
            [&] { return std::ranges::count(server_->numbers, number - 1) > 0; }, *server_,
            *client_);
    };
    const std::size_t step = hostile.drip ? 1 : hostile.bytes.size() + 1;
    for (std::size_t at = 0; at <= hostile.bytes.size(); at += step) {
        for (std::uint16_t peer = 0; RawSocket & socket : sockets) {
            std::string bytes = hostile.bytes.substr(at, step);
            if (++peer > 1 && !bytes.empty()) { // each is a different peer
                std::memcpy(&bytes[12], &peer, sizeof peer);
            }
            socket.send(bytes);
        }
        ASSERT_TRUE(exchange());
    }
    if (!hostile.staysOpen) {
        ASSERT_TRUE(until([&] { return sockets.front().isClosed(); }, *server_, *client_));
    }
    ASSERT_TRUE(exchange());
    EXPECT_EQ(client_->lost, 0);
    EXPECT_EQ(client_->counters().connected, 1U);
}

INSTANTIATE_TEST_SUITE_P(
    Net, HostilePeer,
    testing::Values(
        Hostile{"Garbage", std::string(5000, '\xA5')},
        Hostile{"WebBrowser", "GET / HTTP/1.1\r\n\r\n"},
        Hostile{"HalfAGreeting", greeting().substr(0, 11), 1, false, true},
        Hostile{"OtherVersion", greeting(3)},
        Hostile{"LengthTooShortForAHeader", greetingAnd({3, 0})},
        Hostile{"LengthAboveTheLimit", greetingAnd({(64U << 20U) - 3, 0})},
        Hostile{"LargeFrameThatNeverComes", greetingAnd({64U << 19U, 0}), 1, false, true},
        Hostile{"SlowDrip", greetingAnd({8, 0, 0xFFFFFFFF}), 1, true, true},
        Hostile{"Flood", greetingAnd({8, 0, 0xFFFFFFFF}, 20000), 1, false, true},
        Hostile{"ManySilentConnections", "", 500, false, true},
        Hostile{"ManyGreetedConnections", greeting(), 400, false, true}),
    [](const auto& row) { return row.param.name; });

TEST_F(Net, TurnsAwaySilentPeersInTimeOrWhenTheyAreTooMany) {
    const auto server = newServer(0, false);
    const RawSocket first(server->port(), "ORV");
    const RawSocket second(server->port(), "ORV");
    std::list<RawSocket> others;
    while (others.size() < Corvid::MultiCommunicator::kMaxUngreeted - 1) {
        others.emplace_back(server->port());
    }
    ASSERT_TRUE(until([&] { return first.isClosed(); }, *server));
    EXPECT_FALSE(second.isClosed());
    EXPECT_TRUE(server->hasLine("too many connections have not greeted"));
    ASSERT_TRUE(until([&] { return second.isClosed(); }, *server));
    EXPECT_TRUE(server->hasLine("it did not greet in time"));
}

TEST_F(Net, BoundsConnectionsAndTheMemoryOfTheirInput) {
    const auto server = newServer(0, false);
    // Events that never end, each in a buffer of 64 MiB.
    std::list<RawSocket> large;
    const std::string part(std::size_t{24} << 20U, 'x');
    for (std::uint16_t peer = 0; peer < 5; ++peer) {
        const RawSocket& socket =
            large.emplace_back(server->port(), greeting(2, peer) + "\0\0\0\3\0\0\0"s, 0);
        std::size_t sent = 0;
        ASSERT_TRUE(until(
            [&] {
                sent += socket.send(std::string_view(part).substr(sent));
                return sent == part.size() || server->lost > 0;
            },
            *server));
    }
    ASSERT_TRUE(until([&] { return server->lost == 1; }, *server));
    EXPECT_EQ(
        server->counters().lastDrops.at(0).reason, "too many large events are arriving at once");

    rlimit limit = {};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit many = {std::min<rlim_t>(limit.rlim_max, 4 * kMaxConnections), limit.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &many), 0);
    ASSERT_GT(many.rlim_cur, 3 * kMaxConnections);
    server->setMaxPerAddress(2 * kMaxConnections);
    std::list<RawSocket> peers;
    while (peers.size() < kMaxConnections + 20) {
        peers.emplace_back(server->port(), greeting(2, static_cast<std::uint16_t>(peers.size())));
        server->poll();
    }
    const auto isSettled = [&, all = peers.size() + large.size()] {
        return server->counters().connected + server->counters().refused == all;
    };
    EXPECT_TRUE(until(isSettled, *server));
    EXPECT_EQ(server->connections(), kMaxConnections);
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

TEST_F(Net, DropsAPeerThatDoesNotReadAndNoOther) {
    constexpr std::size_t kLimit = 4U << 20U;
    connect();
    server_->setLagLimit(kLimit);
    server_->onAdd = [](Communicator* communicator) { // the replay is no lag
        return sendNumber(*communicator, 0, 2 * kLimit) && sendNumber(*communicator, 1, kLimit / 4);
    };
    const auto lazy = connectLazy();
    constexpr std::uint32_t kCount = 40000;
    for (std::uint32_t i = 0; i < kCount; ++i) {
        ASSERT_TRUE(sendNumber(*server_, i, 1000));
        if (i % 100 == 0) {
            server_->poll();
            client_->poll();
            ASSERT_LE(server_->counters().bytesKept, 5 * kLimit);
        }
    }
    ASSERT_TRUE(until([&] { return client_->numbers.size() == kCount; }, *server_, *client_));
    EXPECT_EQ(client_->numbers, upTo(kCount));
    EXPECT_EQ(server_->lost, 1);
    ASSERT_EQ(server_->counters().lastDrops.size(), 1U);
    EXPECT_NE(server_->counters().lastDrops[0].reason.find("too slowly"), std::string::npos);
}

TEST_F(Net, ServesConnectionsInTurn) {
    const auto server = newServer(0, false);
    std::list<RawSocket> loud;
    std::size_t all = 1;
    for (const auto& [peer, count, words] :
         {std::tuple('a', 5000, 3), {'b', 5000, 3}, {'c', 400, 250}}) {
        std::vector<std::uint32_t> frame(static_cast<std::size_t>(words));
        frame[0] = static_cast<std::uint32_t>(4 * words - 4);
        frame[2] = static_cast<std::uint32_t>(peer);
        loud.emplace_back(server->port(), greetingAnd(frame, count, peer));
        all += static_cast<std::size_t>(count);
    }
    const RawSocket quiet(server->port(), greetingAnd({8, 0, 7}, 1, 'q'));
    ASSERT_TRUE(until([&] { return server->numbers.size() == all; }, *server));
    server->numbers.resize(3000);
    EXPECT_GT(std::ranges::count(server->numbers, 'a'), 500);
    EXPECT_GT(std::ranges::count(server->numbers, 'b'), 500);
    EXPECT_GT(std::ranges::count(server->numbers, 'c'), 50);
    EXPECT_LT(std::ranges::count(server->numbers, 'c'), 300) << "large frames, so fewer of them";
    EXPECT_EQ(std::ranges::count(server->numbers, 7U), 1);
}

/// Frames are sent, now and then on two threads, and after a pause one more, at any moment of the
/// loop thread's way to sleep. Nothing but its wake-up sends it. ORVEL_WAKE_UP_ROUNDS sets the
/// number of rounds.
TEST_F(Net, SendsWhatIsQueuedWhileTheLoopFallsAsleep) {
    connect();
    std::atomic<std::size_t> arrived = 0;
    std::jthread receiving([&](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            server_->waitForCommunicators(10ms);
            server_->poll();
            arrived = server_->numbers.size();
        }
    });
    const std::jthread loop([&](const std::stop_token& stop) {
        const std::stop_callback end(stop, [&] { client_->breakWait(); });
        EXPECT_FALSE(client_->waitForCommunicators());
    });
    const char* rounds = std::getenv("ORVEL_WAKE_UP_ROUNDS");
    std::size_t sent = 0;
    for (int round = 0; round < (rounds == nullptr ? 1000 : std::atoi(rounds)); ++round) {
        const int count = 1 + round % 100;
        const auto flood = [&] {
            for (int i = 0; i < count; ++i) {
                sendNumber(*client_, 0);
            }
        };
        if (round % 32 == 0) {
            const std::jthread other(flood);
            flood();
            sent += static_cast<std::size_t>(count);
        } else {
            flood();
        }
        sent += static_cast<std::size_t>(count);
        const auto begin = std::chrono::steady_clock::now();
        const auto pause = std::chrono::nanoseconds(round * 7919 % 400'000);
        while (std::chrono::steady_clock::now() < begin + pause) {
        }
        sendNumber(*client_, 1);
        ++sent;
        while (arrived != sent) {
            std::this_thread::yield();
            ASSERT_LT(std::chrono::steady_clock::now() - begin, 20s) << "round " << round;
        }
    }
}

TEST_F(Net, ClosesPromptlyWhateverPeersDo) {
    connect();
    const auto lazy = connectLazy();
    for (std::uint32_t i = 0; i < 20000; ++i) {
        sendNumber(*server_, i, 1000);
    }
    server_->close(); // does not wait for what cannot leave
    EXPECT_FALSE(sendNumber(*server_, 0));
}

TEST_F(Net, LetsWhatIsQueuedLeaveAtClosing) {
    connect();
    for (std::uint32_t i = 0; i < 200; ++i) { // more than the system accepts at once
        sendNumber(*client_, i, 100'000);
    }
    server_->onFrame = [](auto...) { std::this_thread::sleep_for(3ms); };
    sendNumber(*server_, 1); // unread input must not prevent delivery
    server_->poll();
    std::thread closing([&] { client_->close(); });
    EXPECT_TRUE(until([&] { return server_->lost == 1; }, *server_));
    closing.join();
    EXPECT_EQ(server_->numbers.size(), 200U);
}

/// A client whose own thread runs the loop while the test's thread delivers.
class DeferredNet : public Net {
protected:
    DeferredNet() {
        client.setDiagnostic({}); // it would be called on either thread
        client.multicast().setPort(port_);
        client.setDeferred(true);
        client.onAdd = [](Communicator* communicator) { return sendNumber(*communicator, 0); };
    }
    void open(double interval) {
        client.setSearchInterval(interval);
        ASSERT_TRUE(client.open());
        loop_ = std::jthread([this] { EXPECT_FALSE(client.waitForCommunicators()); });
    }
    ~DeferredNet() override { client.breakWait(); }
    bool delivered(const std::function<bool()>& condition, Server& server) {
        return until(
            [&] {
                client.deliver([this](Communicator* c) { client.take(c); });
                return condition();
            },
            server);
    }
    Client client;

private:
    std::jthread loop_; // joined by its destructor
};

/// Only the frames of the new connection are sent, so nothing else wakes the loop for it.
TEST_F(DeferredNet, SendsEachReplayAtOnce) {
    open(kNever);
    for (int i = 0; i < 200; ++i) {
        const auto server = newServer();
        ASSERT_TRUE(delivered([&] { return server->numbers.size() == 1; }, *server));
    }
}

/// The loop thread notices the loss while the host still brings the server up to date.
TEST_F(DeferredNet, ReportsAServerThatIsLostDuringItsReplay) {
    auto server = newServer();
    client.onAdd = [&](Communicator* communicator) {
        server->close();
        return until([&] {
            sendNumber(*communicator, 0);
            return client.counters().dropped == 1;
        });
    };
    open(kNever);
    ASSERT_TRUE(delivered([&] { return client.lost == 1; }, *server));
}

/// Only the thread that delivers sees connections and frames, while others send and work the loop.
TEST_F(DeferredNet, DeliversOnTheHostsThread) {
    constexpr std::uint32_t kCount = 3000;
    open(0.05);
    auto server = newServer();
    server->onFrame = [](Communicator* communicator, std::span<const std::byte> frame) {
        communicator->sendFrame(frame.data(), frame.size());
    };
    ASSERT_TRUE(delivered([&] { return client.connections() == 1; }, *server));
    client.onFrame = [&](auto...) {
        EXPECT_EQ(client.deliver([](auto...) { FAIL() << "nested"; }), 0);
    };
    for (std::uint32_t i = 1; i < kCount; ++i) {
        sendNumber(client, i);
    }
    ASSERT_TRUE(delivered([&] { return client.numbers.size() == kCount; }, *server));
    EXPECT_EQ(client.numbers, upTo(kCount));
    // Removed while the loop thread may be using it, then found again.
    ASSERT_TRUE(client.removeCommunicator(client.newest));
    delete client.newest;
    ASSERT_TRUE(delivered([&] { return client.counters().connected == 2; }, *server));
    server->close();
    ASSERT_TRUE(delivered([&] { return client.lost == 1; }, *server));
}

} // namespace
