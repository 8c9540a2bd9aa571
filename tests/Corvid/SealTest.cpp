#include "NetSupport.h"

#include "support/TemporaryFolder.h"

#include <Corvid/Keys.h>
#include <Corvid/detail/net/DatagramSeal.h>
#include <Corvid/detail/net/Seal.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <numeric>
#include <sys/stat.h>
#include <sys/uio.h>

namespace {

using Corvid::Keys;
using Corvid::detail::DatagramSeal;
using Corvid::detail::DiscoveryDatagram;
using Corvid::detail::Keyring;
using Corvid::detail::Seal;
using Orvel::Test::freePort;
using Orvel::Test::loopback;
using Orvel::Test::RawSocket;
using Orvel::Test::sendTo;

/// A key file with these keys.
void write(const std::string& path, const Keys& keys) {
    ASSERT_EQ(keys.save(path, true), "");
}
Keys keysFor(std::initializer_list<const char*> names) {
    Keys keys;
    for (const char* name : names) {
        EXPECT_EQ(keys.grant(name, Keys::Right::Drive), "");
    }
    return keys;
}

TEST(Keys, RefusesDamagedAndReadableFiles) {
    const Orvel::Test::TemporaryFolder folder;
    const std::string path = folder.file("show.keys");
    const Keys keys = keysFor({"desk", "foyer"});
    write(path, keys);
    Keys read;
    ASSERT_EQ(read.load(path), "");
    EXPECT_EQ(read.all(), keys.all());
    EXPECT_NE(keys.save(path, false), "") << "it exists";

    const std::string id(16, 'a');
    const std::string secret(64, 'b');
    const std::string line = "key " + id + " drive a " + secret + "\n";
    const std::string rows[] = {
        "",
        "orvel-keys 2\n",
        line,
        "orvel-keys 1\nkey\n",
        "orvel-keys 1\n" + line + line,
        "orvel-keys 1\nkey " + id + " rule a " + secret,
        "orvel-keys 1\nkey " + id + " drive a/b " + secret,
        "orvel-keys 1\nkey " + id + " drive a " + secret + " x",
        "orvel-keys 1\nkey " + id + " drive a " + secret.substr(1),
        "orvel-keys 1\nkey " + id + " drive a " + secret.substr(1) + "g",
        std::string(Keys::kMaxFileBytes + 1, '#')};
    for (const std::string& row : rows) {
        EXPECT_NE(read.parse(row), "") << row;
        EXPECT_EQ(read.all(), keys.all()) << row;
    }
    for (const mode_t mode : {0644U, 0604U}) {
        ASSERT_EQ(::chmod(path.c_str(), mode), 0);
        EXPECT_NE(read.load(path).find("chmod 600"), std::string::npos) << mode;
    }
    EXPECT_NE(read.load(folder.path()), "");
}

/// Both sides of a sealed connection, without a network.
class SealPair {
public:
    explicit SealPair(const Keys::Key& key, const Orvel::Test::TemporaryFolder& folder)
        : SealPair(key, ringOf(folder)) {}
    SealPair(const Keys::Key& key, const std::shared_ptr<Keyring>& ring)
        : client(Seal::connecting(key)), server(Seal::accepting(ring)) {}
    static std::shared_ptr<Keyring> ringOf(const Orvel::Test::TemporaryFolder& folder) {
        auto ring = std::make_shared<Keyring>(folder.file("show.keys"));
        EXPECT_EQ(ring->look().problem, "");
        return ring;
    }

    /// Passes bytes on until there are none, through `alter`.
    template <class Alter>
    void run(const Alter& alter) {
        for (bool more = true; more;) {
            more = pass(*client, *server, alter, 0) || pass(*server, *client, alter, 1);
        }
    }
    static std::string open(Seal& seal) {
        std::array<std::byte, 100> room;
        std::string text;
        while (const std::size_t size = seal.open(room)) {
            text.append(reinterpret_cast<const char*>(room.data()), size);
        }
        return text;
    }
    static void put(Seal& seal, std::string text) {
        const iovec piece = {text.data(), text.size()};
        seal.seal(&piece, text.size());
    }

    std::unique_ptr<Seal> client;
    std::unique_ptr<Seal> server;
    std::array<std::size_t, 2> passed = {};

private:
    template <class Alter>
    bool pass(Seal& from, Seal& to, const Alter& alter, std::size_t way) {
        std::vector<std::byte> bytes(from.output().begin(), from.output().end());
        from.sent(bytes.size());
        for (std::byte& byte : bytes) {
            alter(way, passed[way]++, byte);
        }
        std::span<const std::byte> left(bytes);
        while (!left.empty() && to.fault().empty()) {
            const auto room = to.room();
            const std::size_t size = std::min(room.size(), left.size());
            std::copy_n(left.begin(), size, room.begin());
            to.commit(size);
            left = left.subspan(size);
        }
        return !bytes.empty();
    }
};

TEST(Seal, NoAlteredByteGetsThrough) {
    const Orvel::Test::TemporaryFolder folder;
    const Keys keys = keysFor({"desk"});
    write(folder.file("show.keys"), keys);
    const auto ring = SealPair::ringOf(folder);
    const std::string client = "from the client";
    const std::string server = "from the server";
    const auto honest = [](auto, auto, auto&) {};
    const auto talk = [&](SealPair& pair, const auto& alter) {
        pair.run(alter);
        std::string heard;
        if (pair.client->isReady() && pair.server->isReady()) {
            SealPair::put(*pair.client, client);
            SealPair::put(*pair.server, server);
            pair.run(alter);
            heard = SealPair::open(*pair.server) + SealPair::open(*pair.client);
        }
        return heard;
    };
    SealPair good(keys.all()[0], ring);
    ASSERT_EQ(talk(good, honest), client + server);
    EXPECT_EQ(good.server->key().name, "desk");
    for (const std::size_t way : {0U, 1U}) {
        ASSERT_GT(good.passed[way], 100U);
        for (std::size_t place = 0; place < good.passed[way]; ++place) {
            SealPair pair(keys.all()[0], ring);
            const std::string heard = talk(pair, [&](auto theWay, auto at, std::byte& byte) {
                byte ^= theWay == way && at == place ? std::byte{1} : std::byte{0};
            });
            // One direction may be whole, or both: a version in the first record has no meaning.
            EXPECT_TRUE(
                heard.empty() || heard == client || heard == server || heard == client + server)
                << way << ' ' << place << ' ' << heard;
        }
    }
}

TEST(Seal, TellsStrangersNothing) {
    const Orvel::Test::TemporaryFolder folder;
    const Keys keys = keysFor({"desk"});
    write(folder.file("show.keys"), keys);
    const auto ring = SealPair::ringOf(folder);
    Keys::Key wrongSecret = keys.all()[0];
    wrongSecret.secret[0] ^= std::byte{1};
    Keys::Key unknown = wrongSecret;
    unknown.id[0] = unknown.id[0] == 'a' ? 'b' : 'a';
    std::vector<std::string> faults;
    for (const Keys::Key& key : {wrongSecret, unknown}) {
        SealPair pair(key, ring);
        pair.run([](auto, auto, auto&) {});
        EXPECT_FALSE(pair.server->isReady() || pair.client->isReady());
        EXPECT_EQ(pair.passed[1], 0U) << "it answered";
        faults.push_back(pair.server->fault());
    }
    EXPECT_EQ(faults[0], faults[1]);
    // Nor can one send without end before it has proven anything.
    const auto endless = Seal::accepting(ring);
    std::size_t sent = 0;
    while (endless->fault().empty() && sent < 4 * Seal::kMaxHandshakeBytes) {
        const auto room = endless->room();
        std::fill(room.begin(), room.end(), std::byte{22});
        endless->commit(room.size());
        sent += room.size();
    }
    EXPECT_FALSE(endless->fault().empty());
}

TEST(Seal, RenewsItsKeysAndKeepsOrderOverPieces) {
    const Orvel::Test::TemporaryFolder folder;
    const Keys keys = keysFor({"desk"});
    write(folder.file("show.keys"), keys);
    SealPair pair(keys.all()[0], folder);
    const auto honest = [](auto, auto, auto&) {};
    pair.run(honest);
    std::string text(3 * Seal::kRecordBytes + 77, ' ');
    std::iota(text.begin(), text.end(), '\1');
    // Pieces that do not end where records do.
    std::vector<iovec> pieces;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t size =
            std::min<std::size_t>(pieces.size() % 2 ? 1000 : 20001, text.size() - at);
        pieces.push_back({text.data() + at, size});
        at += size;
    }
    pair.client->seal(pieces.data(), text.size());
    pair.run(honest);
    EXPECT_EQ(SealPair::open(*pair.server), text);
}

TEST(DatagramSeal, HoldsForOneKeyOneSenderAndEveryByte) {
    const Keys keys = keysFor({"desk", "foyer"});
    const Keys others = keysFor({"desk"});
    const Corvid::Socket::Endpoint sender{Corvid::InetAddress::fromBits(0x7F000001), 4000};
    const DiscoveryDatagram query{2, DiscoveryDatagram::Kind::Query, 7, 1, 0, 5, 0};
    const auto nonce = DatagramSeal::newNonce();
    const auto bytes = DatagramSeal::seal(query, keys.all()[1], nonce, sender);
    const auto seal = DatagramSeal::open(bytes, keys, sender);
    ASSERT_TRUE(seal);
    EXPECT_EQ(seal->key->name, "foyer");
    EXPECT_EQ(seal->nonce, nonce);
    EXPECT_FALSE(DatagramSeal::open(bytes, others, sender));
    EXPECT_FALSE(DatagramSeal::open(bytes, keys, {sender.address, 4001}));
    EXPECT_FALSE(
        DatagramSeal::open(bytes, keys, {Corvid::InetAddress::fromBits(0x7F000002), 4000}));
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        auto altered = bytes;
        altered[i] ^= std::byte{1};
        EXPECT_FALSE(DatagramSeal::open(altered, keys, sender)) << i;
    }
}

/// Stands between a client and a server, and passes bytes on.
class Relay {
public:
    enum class Trick { None, Flip, Drop, Repeat, Reorder, Swap, Cut, Replay };

    explicit Relay(std::uint16_t server) : server_(server) {
        listener_ = Orvel::Test::boundSocket(SOCK_STREAM | SOCK_NONBLOCK, port);
        ::listen(listener_, 8);
    }
    Relay(const Relay&) = delete;
    Relay& operator=(const Relay&) = delete;
    ~Relay() {
        hangUp();
        ::close(listener_);
    }
    void poll() {
        const int client = ::accept4(listener_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (client >= 0) {
            hangUp();
            client_ = client;
            up_ = std::make_unique<RawSocket>(server_, "", 0);
            toServer_.clear();
            passed_ = 0;
            ++connections;
            if (trick == Trick::Replay) {
                toServer_ = recorded_;
            }
        }
        if (client_ < 0) {
            return;
        }
        std::string up;
        std::array<char, 65536> block;
        ssize_t size = 0;
        while ((size = ::recv(client_, block.data(), block.size(), MSG_DONTWAIT)) > 0) {
            up.append(block.data(), static_cast<std::size_t>(size));
        }
        const bool clientIsGone = size == 0;
        std::string down;
        const bool serverIsGone = !up_->receive(down);
        if (trick == Trick::None) {
            recorded_ = passed_ == 0 ? up : recorded_ + up;
        }
        passed_ += up.size();
        if (passed_ > from && !up.empty()) { // once the connection is as old as wanted
            ++turn_;
            play(up, down);
        }
        if (trick != Trick::Replay) {
            toServer_ += up;
        }
        toServer_.erase(0, up_->send(toServer_));
        ::send(client_, down.data(), down.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (clientIsGone || serverIsGone) {
            hangUp();
        }
    }

    std::uint16_t port = 0;
    Trick trick = Trick::None;
    std::size_t from = 0; // number of the client's bytes before the trick
    int connections = 0;

private:
    void play(std::string& up, std::string& down) {
        switch (trick) {
        case Trick::Flip: // in each record, each time elsewhere
            for (std::size_t i = turn_ % 16; i < up.size(); i += 16) {
                up[i] = static_cast<char>(static_cast<unsigned char>(up[i]) ^ (1U << turn_ % 8));
            }
            break;
        case Trick::Drop:
            up.erase(turn_ % std::min<std::size_t>(up.size(), 64), 1);
            break;
        case Trick::Repeat:
            up += up;
            break;
        case Trick::Reorder:
            std::rotate(
                up.begin(), up.begin() + static_cast<std::ptrdiff_t>(up.size() / 2), up.end());
            break;
        case Trick::Swap:
            down += up;
            break;
        case Trick::Cut:
            up_->send(toServer_ + up.substr(0, up.size() / 2));
            toServer_.clear();
            up.clear();
            hangUp();
            up_ = std::make_unique<RawSocket>(server_, "", 0);
            break;
        case Trick::None:
        case Trick::Replay:
            break;
        }
    }
    void hangUp() {
        if (client_ >= 0) {
            ::close(client_);
            client_ = -1;
        }
        up_.reset();
    }

    std::uint16_t server_;
    int listener_ = -1;
    int client_ = -1;
    std::unique_ptr<RawSocket> up_;
    std::string toServer_;
    std::size_t passed_ = 0;
    unsigned turn_ = 0;
    std::string recorded_;
};

class SealedNet : public testing::Test {
protected:
    std::unique_ptr<Server> newServer(const std::string& keys) {
        auto server = std::make_unique<Server>();
        server->multicast().setPort(port_);
        EXPECT_TRUE(keys.empty() || server->setKeys(folder_.file(keys)));
        EXPECT_TRUE(server->open("", 0, true));
        return server;
    }
    std::unique_ptr<Client> newClient(const std::string& keys) {
        auto client = std::make_unique<Client>();
        client->multicast().setPort(port_);
        client->setSearchInterval(0.05);
        EXPECT_TRUE(keys.empty() || client->setKeys(folder_.file(keys)));
        EXPECT_TRUE(client->open());
        return client;
    }
    const Orvel::Test::TemporaryFolder folder_;
    const std::uint16_t port_ = freePort(SOCK_DGRAM);
};

TEST_F(SealedNet, FindsConnectsAndCarriesEverythingBothWays) {
    write(folder_.file("show.keys"), keysFor({"desk", "foyer"}));
    const auto server = newServer("show.keys");
    const auto client = newClient("show.keys");
    client->onAdd = [](Corvid::Communicator* peer) { // begins with a replay
        for (std::uint32_t i = 0; i < 1000; ++i) {
            sendNumber(*peer, i);
        }
        return true;
    };
    ASSERT_TRUE(until(
        [&] { return client->connections() == 1 && server->connections() == 1; }, *server,
        *client));
    EXPECT_TRUE(server->counters().connections[0].peer.starts_with("desk at 127.0.0.1:"));
    std::uint32_t next = 1000;
    for (const std::uint32_t size : {12U, 16384U, 100U, 1000000U, 12U}) {
        for (int i = 0; i < (size > 1000 ? 5 : 5000); ++i) {
            sendNumber(*client, next++, size);
        }
    }
    sendNumber(*server, 4711);
    ASSERT_TRUE(until(
        [&] { return server->numbers.size() == next && client->numbers.size() == 1; }, *server,
        *client));
    std::vector<std::uint32_t> all(next);
    std::iota(all.begin(), all.end(), 0);
    EXPECT_EQ(server->numbers, all);
    sendNumber(*client, next); // closing sends the rest
    client->close();
    ASSERT_TRUE(until([&] { return server->lost == 1; }, *server));
    EXPECT_EQ(server->numbers.size(), next + 1);
}

TEST_F(SealedNet, RefusesStrangersWithALineOnEachSide) {
    write(folder_.file("show.keys"), keysFor({"desk"}));
    write(folder_.file("other.keys"), keysFor({"desk"}));
    struct Row {
        const char* server;
        const char* client;
        const char* serverSays;
        const char* clientSays;
    };
    const Row rows[] = {
        {"show.keys", "other.keys", "does not hold a key", "does not know this program's key"},
        {"", "show.keys", "give this server its key file", "it has no keys"}};
    for (const Row& row : rows) {
        const auto server = newServer(row.server);
        const auto client = newClient(row.client);
        client->connectToServer("127.0.0.1", server->port());
        EXPECT_TRUE(until(
            [&] {
                return server->hasLine(row.serverSays) && client->hasLine(row.clientSays) &&
                       server->counters().refused > 3;
            },
            *server, *client))
            << row.serverSays;
        const auto count = [&](const auto& lines, const char* part) {
            return std::ranges::count_if(lines, [&](const std::string& line) {
                return line.find(part) != std::string::npos;
            });
        };
        EXPECT_EQ(count(server->lines, row.serverSays), 1);
        EXPECT_EQ(count(client->lines, row.clientSays), 1);
        EXPECT_TRUE(client->foundServers().empty());
        EXPECT_EQ(server->connections() + client->connections(), 0U);
    }
    const auto server = newServer("show.keys");
    const auto open = newClient("");
    open->connectToServer("127.0.0.1", server->port());
    EXPECT_TRUE(until(
        [&] {
            return server->hasLine("did not begin a sealed session") &&
                   open->hasLine("if it has keys, give this program one");
        },
        *server, *open));
}

TEST_F(SealedNet, TakesAChangedFileAndEndsRevokedKeys) {
    Keys keys = keysFor({"desk", "foyer"});
    write(folder_.file("show.keys"), keys);
    Keys foyer = keys;
    foyer.revoke("desk");
    write(folder_.file("foyer.key"), foyer);
    const auto server = newServer("show.keys");
    const auto desk = newClient("show.keys");
    const auto other = newClient("foyer.key");
    ASSERT_TRUE(until([&] { return server->connections() == 2; }, *server, *desk, *other));
    write(folder_.file("show.keys"), foyer);
    ASSERT_TRUE(
        until([&] { return server->connections() == 1 && server->lost == 1; }, *server, *other));
    EXPECT_TRUE(server->counters().connections[0].peer.starts_with("foyer at"));
    EXPECT_TRUE(server->hasLine("its key is not valid any more"));
    // A damaged file changes nothing, and the server mends itself with the next one.
    std::ofstream(folder_.file("show.keys")) << "damaged";
    ASSERT_TRUE(until([&] { return server->hasLine("the former keys stay"); }, *server, *other));
    EXPECT_EQ(server->connections(), 1U);
    write(folder_.file("show.keys"), keys);
    EXPECT_TRUE(until([&] { return server->connections() == 2; }, *server, *desk, *other));
}

/// ORVEL_ALTERED_MESSAGES: how many at least, by default a few hundred; a million take a minute.
TEST_F(SealedNet, SurvivesAManInTheMiddle) {
    using Trick = Relay::Trick;
    write(folder_.file("show.keys"), keysFor({"desk"}));
    const auto server = newServer("show.keys");
    Relay relay(server->port());
    const auto client = std::make_unique<Client>();
    client->multicast().setPort(freePort(SOCK_DGRAM)); // finds nothing else
    client->setSearchInterval(0.05);
    ASSERT_TRUE(client->setKeys(folder_.file("show.keys")));
    ASSERT_TRUE(client->open());
    client->connectToServer("127.0.0.1", relay.port);
    const char* wanted = std::getenv("ORVEL_ALTERED_MESSAGES");
    const std::size_t enough = wanted != nullptr ? std::stoul(wanted) : 1;
    const std::uint32_t burst = wanted != nullptr ? 5000 : 50;
    std::size_t altered = 0;
    std::uint32_t next = 0;
    const auto sendBurst = [&] {
        for (std::uint32_t i = 0; i < burst; ++i) {
            sendNumber(*client, next++, 24);
        }
    };
    const auto connected = [&] { return client->connections() == 1 && server->connections() == 1; };
    do {
        for (const auto trick :
             {Trick::Flip, Trick::Drop, Trick::Repeat, Trick::Reorder, Trick::Swap, Trick::Cut,
              Trick::Replay}) {
            for (const std::size_t from : {0U, 700U}) {
                if (trick == Trick::Drop && from == 0) {
                    continue; // the server waits for the byte until its deadline
                }
                relay.trick = Trick::None;
                ASSERT_TRUE(until(connected, *server, *client, relay));
                server->numbers.clear();
                client->numbers.clear();
                const std::uint32_t first = next;
                sendBurst();
                ASSERT_TRUE(until(
                    [&] { return server->numbers.size() == burst; }, *server, *client, relay));
                relay.from = from;
                relay.trick = trick;
                if (trick == Trick::Replay || from < 700) { // a new connection meets it
                    client->newest->close();
                } else {
                    sendBurst();
                }
                altered += trick == Trick::Replay || from == 700 ? burst : 0;
                const int lost = server->lost;
                const int before = relay.connections;
                EXPECT_TRUE(until(
                    [&] {
                        if (client->connections() == 1) {
                            sendNumber(*client, next++, 1000);
                        }
                        return server->lost > lost && relay.connections > before + 1;
                    },
                    *server, *client, relay))
                    << static_cast<int>(trick) << ' ' << from;
                // Only what was sent, in its order, and nothing that was altered.
                for (std::size_t i = 0; i < server->numbers.size(); ++i) {
                    ASSERT_LT(server->numbers[i], next);
                    ASSERT_GE(server->numbers[i], first);
                    ASSERT_TRUE(i == 0 || server->numbers[i] > server->numbers[i - 1]);
                }
                if (trick == Trick::Flip || trick == Trick::Drop || trick == Trick::Reorder) {
                    ASSERT_EQ(server->numbers.size(), burst) << static_cast<int>(trick);
                }
                ASSERT_TRUE(client->numbers.empty()) << "its own came back";
            }
        }
    } while (altered < enough);
    RecordProperty("altered", static_cast<int>(altered));
    RecordProperty("connections", relay.connections);
}

TEST_F(SealedNet, RefusesRepeatedDatagrams) {
    using Kind = DiscoveryDatagram::Kind;
    const Keys keys = keysFor({"desk"});
    write(folder_.file("show.keys"), keys);
    const std::uint32_t group = ntohl(::inet_addr(Corvid::Multicast::kDefaultAddress));
    const sockaddr_in everybody = loopback(port_, group);
    const int listener = groupSocket(group, port_);
    std::array<char, DatagramSeal::kDatagramSize> query = {};
    sockaddr_in asker = {};
    const auto isAsked = [&] { // takes the next datagram
        auto bytes = query;
        sockaddr_in sender = {};
        socklen_t length = sizeof sender;
        const bool isQuery = ::recvfrom(
                                 listener, bytes.data(), bytes.size(), MSG_DONTWAIT,
                                 reinterpret_cast<sockaddr*>(&sender), &length) > 0 &&
                             bytes[10] == static_cast<char>(Kind::Query);
        query = isQuery ? bytes : query;
        asker = isQuery ? sender : asker;
        return isQuery;
    };
    auto client = newClient("show.keys");
    client->setConnecting(false);
    ASSERT_TRUE(until(isAsked, *client));
    const auto former = query;
    for (int later = 0; later < 3; ++later) { // the latest two count
        ASSERT_TRUE(until(isAsked, *client));
    }
    // An announcement that answered an earlier query.
    const int stranger = groupSocket(INADDR_LOOPBACK, 0);
    sockaddr_in own = {};
    socklen_t length = sizeof own;
    ::getsockname(stranger, reinterpret_cast<sockaddr*>(&own), &length);
    const auto announce = [&](const auto& to) {
        DatagramSeal::Nonce nonce;
        std::memcpy(
            nonce.data(), to.data() + DiscoveryDatagram::kSize + Keys::kIdBytes, nonce.size());
        const auto bytes = DatagramSeal::seal(
            {2, Kind::Announce, 7, 1, 9, 0, 0}, keys.all()[0], nonce,
            {Corvid::InetAddress::fromBits(INADDR_LOOPBACK), ntohs(own.sin_port)});
        sendTo(stranger, {reinterpret_cast<const char*>(bytes.data()), bytes.size()}, everybody);
    };
    announce(former);
    ASSERT_TRUE(until([&] { return client->counters().datagramsIgnored == 1; }, *client));
    EXPECT_TRUE(client->foundServers().empty());
    const auto isFound = [&] {
        isAsked();
        announce(query);
        return client->foundServers().size() == 1;
    };
    EXPECT_TRUE(until(isFound, *client));
    ::close(stranger);

    // A query, from the address of its first sender.
    client->close();
    for (int i = 0; i < 1000; ++i) { // announcements too
        isAsked();
    }
    const auto server = newServer("show.keys");
    const int repeater = groupSocket(INADDR_LOOPBACK, ntohs(asker.sin_port));
    int answers = 0;
    const auto repeatUntil = [&](const auto& done) {
        return until(
            [&] {
                sendTo(repeater, {query.data(), query.size()}, everybody);
                std::array<char, DatagramSeal::kDatagramSize> answer;
                answers += ::recv(repeater, answer.data(), answer.size(), MSG_DONTWAIT) > 0 ? 1 : 0;
                return done();
            },
            *server);
    };
    EXPECT_TRUE(repeatUntil([&] { return answers > 0; }));
    EXPECT_TRUE(repeatUntil([&] { return server->counters().datagramsIgnored > 5; }));
    EXPECT_EQ(answers, 1);
    ::close(repeater);
    ::close(listener);
}

} // namespace
