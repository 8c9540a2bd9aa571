// Captures: replaying a session, and truncated or damaged files, which play up to that point.
#include <Show/capture/Capture.h>

#include "commands/Kinds.h"
#include "process/Diagnostics.h"
#include <Show/capture/CaptureFormat.h>
#include <Show/capture/CaptureReader.h>
#include <Show/capture/CaptureWriter.h>
#include <Show/desk/Activity.h>
#include <Show/detail/VisibleText.h>
#include <Show/render/OfflineRenderer.h>
#include <Show/server/SoundServer.h>

#include <Corvid/Communicator.h>
#include <Corvid/MultiClient.h>
#include <Corvid/MultiServer.h>
#include <Orvel/ClientBackend.h>
#include <Orvel/CreateEmitterEvent.h>
#include <Orvel/Emitter.h>
#include <Orvel/Source.h>
#include <Orvel/TransformEvent.h>

#include <nlohmann/json.hpp>
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <map>
#include <sstream>
#include <support/Capture.h>
#include <support/Loopback.h>
#include <support/RecordingBackend.h>
#include <support/TemporaryFolder.h>
#include <support/WorldText.h>

using namespace OrvelTool;
using namespace Show;
using namespace Orvel::Test;

namespace {

const std::string kSources = R"({"orvel":1,"sources":[
    {"id":1,"tone":{"hertz":441,"seconds":0.1},"loop":true},{"id":2,"tone":{"hertz":882,"seconds":0.1},"loop":true}],
    "timeline":[{"at":5,"source":3,"create":true,"tone":{"seconds":0.1}}]})";

/// A client with a world of its own.
struct Client {
    Client() {
        world.createSource(1);
        world.createSource(2);
        const std::string params = "deferred=yes port=" + std::to_string(testPort());
        client = dynamic_cast<Orvel::ClientBackend*>(world.addBackend("client", params.c_str()));
    }
    Orvel::Emitter* emitter(int id, int source) {
        Orvel::Emitter* made = world.createEmitter({}, id);
        made->setHull(20, 20, 2, 2);
        made->setSource(world.getSource(source));
        made->setState(Orvel::WorldPart::PLAY);
        return made;
    }
    static void move(Orvel::Emitter* emitter, float x) {
        const Orvel::Vec3f place{x, 0, -1};
        emitter->setTransform(&place, nullptr);
    }

    TidyWorld world;
    Orvel::ClientBackend* client = nullptr;
};

class Captures : public testing::Test {
protected:
    /// Records a session of two clients, one after the other, and local input; returns the
    /// description of the server's world at its end.
    std::string record() {
        std::ofstream(bankPath) << kSources;
        const auto bank = loadScene(bankPath, problems);
        Diagnostics diagnostics(false);
        SoundServer server(*bank, 0);
        server.setMulticastPort(testPort());
        server.fill();
        CaptureWriter writer(path, bankPath, kSources, UINT64_MAX, {});
        server.setTap(&writer);
        std::vector<std::unique_ptr<Client>> clients;
        const auto serve = [&](auto done) {
            EXPECT_TRUE(until(done, [&] {
                for (const auto& client : clients) {
                    client->world.update();
                }
                server.serve(std::chrono::milliseconds(4));
            }));
        };
        clients.push_back(std::make_unique<Client>());
        clients[0]->emitter(14, 1);
        serve([&] { return server.emitters().size() == 1; });
        Orvel::CommandEvent off(Orvel::CmdDisable);
        off.send(&clients[0]->client->multiClient());
        serve([&] { return !server.enabled(); });
        // When a client disconnects, its parts and changes are removed.
        clients.clear();
        serve([&] { return server.emitters().empty() && server.enabled(); });
        clients.push_back(std::make_unique<Client>());
        Client& player = *clients[0];
        Orvel::Emitter* a = player.emitter(11, 1);
        Orvel::Emitter* b = player.emitter(12, 2);
        player.emitter(13, 1)->setParam(true, 0, 0.125F);
        player.world.createSource(3);
        player.world.createSource(9); // missing on the server
        Orvel::CreateEmitterEvent local;
        local.address(Orvel::CmdCreateEmitter, 13);
        EXPECT_TRUE(server.apply(local)); // first, so that the client does not own it
        serve([&] { return server.emitters().size() == 3 && server.getSource(3) != nullptr; });
        for (int i = 0; i < 200; ++i) {
            Client::move(a, static_cast<float>(std::sin(i * 0.1)));
            Client::move(b, static_cast<float>(std::cos(i * 0.1)));
        }
        std::int64_t most = 0; // events in a time slice that is over at once
        EXPECT_TRUE(until(
            [&] { return server.getEmitter(12)->position() == b->position(); },
            [&] {
                const std::int64_t before = server.receivedEvents();
                server.serve(std::chrono::milliseconds(0));
                most = std::max(most, server.receivedEvents() - before);
            }));
        EXPECT_LE(most, 128);
        a->setParam(true, 0.25F, 0.5F);
        b->setState(Orvel::WorldPart::PAUSE);
        player.world.setListenerTransform({1, 2, 3}, {0, 1, 0, 0});
        player.world.getSource(3)->setParam(false, 2);
        delete player.world.getSource(3);
        serve([&] { return server.listenerPosition().y > 1 && server.getEmitter(11)->gain() < 1; });
        EXPECT_EQ(server.getSource(3)->pitch(), 1.0F); // kept in its initial state
        EXPECT_EQ(server.getEmitter(13)->gain(), 1.0F);
        EXPECT_TRUE(server.apply(off));
        EXPECT_FALSE(server.enabled());
        server.setTap(nullptr);
        EXPECT_TRUE(writer.finish());
        return describe(server);
    }

    [[nodiscard]] std::string bytes() const {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    void write(const std::string& content) const {
        std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
    }
    /// Plays the file to its end; returns the description of the world.
    std::string replay() {
        Diagnostics diagnostics(false);
        const auto capture = Capture::load(path, false, problems);
        Orvel::OwningWorld<> world;
        const auto player = capture->makePlayer(world, LongFiles::AsNeeded);
        player->start();
        player->advance(player->end());
        return describe(world);
    }

    TemporaryFolder folder;
    std::string path = folder.file("session.orvelrec");
    std::string bankPath = folder.file("bank.json");
    std::vector<Problem> problems; // of the last load
};

std::vector<float> render(const Playable& what) {
    registerKinds();
    Diagnostics diagnostics(false);
    OfflineRenderer renderer(what, 44100);
    std::vector<float> all;
    for (auto block = renderer.next(renderer.end()); !block.empty();
         block = renderer.next(renderer.end())) {
        all.insert(all.end(), block.begin(), block.end());
    }
    return all;
}

} // namespace

TEST_F(Captures, ASessionOfClientsAndLocalInputIsTheSameAgain) {
    const std::string live = record();
    EXPECT_EQ(replay(), live);
    const auto capture = Capture::load(path, false, problems);
    const std::vector<float> once = render(*capture);
    EXPECT_EQ(render(*capture), once);
    EXPECT_TRUE(std::any_of(once.begin(), once.end(), [](float s) { return s > 0.01F; }));
    Diagnostics diagnostics(false);
    std::string fault;
    const auto length = CaptureReader::open(path, fault)->length();
    Activity activity(*capture, static_cast<double>(length.value_or(0)) / 1e6);
    while (activity.advance()) {
    }
    std::string picture;
    activity.write(picture);
    int changes = 0;
    const nlohmann::json parsed = nlohmann::json::parse(picture);
    for (const nlohmann::json& column : parsed["changes"]) {
        changes += column.get<int>();
    }
    EXPECT_GE(changes, 400); // 200 of each of two emitters
    // Starting over leaves nothing from the first time.
    Orvel::OwningWorld<> world;
    const auto player = capture->makePlayer(world, LongFiles::AsNeeded);
    for (int round = 0; round < 2; ++round) {
        player->start();
        EXPECT_TRUE(world.enabled());
        player->advance(player->end());
        EXPECT_EQ(describe(world), live);
    }
    const auto told = diagnostics.take();
    ASSERT_EQ(told.size(), 1);
    EXPECT_NE(told[0].find("sources that the server did not have: 9"), std::string::npos)
        << told[0];
    Orvel::CommandEvent wrong(Orvel::CmdPlaySource, 99); // a peer's mistake loses no sound
    EXPECT_FALSE(Orvel::Server::applyEvent(world, &wrong));
    EXPECT_EQ(diagnostics.take().size(), 1);
    EXPECT_EQ(diagnostics.lost(), 0);
}

TEST_F(Captures, HaveTheTimeOfAChangeAndNotThatOfItsArrival) {
    using Clock = std::chrono::steady_clock;
    const auto begin = Clock::now();
    CaptureWriter writer(path, "", "", UINT64_MAX, {});
    const auto error = Clock::now() - begin;
    Orvel::CommandEvent event(Orvel::CmdEnable);
    // The last one happened before what has been recorded already.
    for (const int second : {2, 5, 3}) {
        writer.setTime(begin + std::chrono::seconds(second));
        writer.received(event, "a");
    }
    writer.setTime(std::nullopt);
    EXPECT_TRUE(writer.finish());
    std::string fault;
    const auto reader = CaptureReader::open(path, fault);
    std::vector<double> seconds;
    for (CaptureReader::Record record; reader->next(record);) {
        if (record.kind == CaptureReader::Kind::Event) {
            seconds.push_back(static_cast<double>(record.time) / 1e6);
        }
    }
    ASSERT_EQ(seconds.size(), 3);
    const double limit = std::chrono::duration<double>(error).count() + 1e-5;
    EXPECT_NEAR(seconds[0], 2, limit);
    EXPECT_NEAR(seconds[1], 5, limit);
    EXPECT_EQ(seconds[2], seconds[1]);
}

TEST_F(Captures, AFileThatIsCutAnywherePlaysUpToTheCut) {
    record();
    const std::string all = bytes();
    std::vector<std::size_t> ends; // of the records, in bytes
    std::string fault;
    const auto whole = CaptureReader::open(path, fault);
    for (CaptureReader::Record record; whole->next(record);) {
        ends.push_back(whole->offset());
    }
    ends.push_back(whole->offset());
    EXPECT_FALSE(whole->damaged());
    for (std::size_t size = all.size() - 1; size > all.size() - 1024; --size) {
        write(all.substr(0, size));
        const auto capture = Capture::load(path, false, problems);
        ASSERT_NE(capture, nullptr);
        ASSERT_EQ(problems.size(), 1);
        EXPECT_NE(problems[0].str().find("is truncated"), std::string::npos) << problems[0].str();
        problems.clear();
        Diagnostics diagnostics(false);
        Orvel::OwningWorld<> world;
        const auto player = capture->makePlayer(world, LongFiles::AsNeeded);
        player->start();
        player->advance(player->end());
        EXPECT_TRUE(std::isinf(player->nextChange(player->end())));
        const auto reader = CaptureReader::open(path, fault);
        std::size_t records = 0;
        for (CaptureReader::Record record; reader->next(record);) {
            ++records;
        }
        EXPECT_TRUE(reader->damaged());
        // offset() is the start of the last record returned, so ends holds the starts.
        const auto expected = static_cast<std::size_t>(
            std::upper_bound(std::next(ends.begin()), ends.end(), size) - std::next(ends.begin()));
        EXPECT_EQ(records, expected) << size;
    }
    // A record that is whole, but larger than any event.
    std::string large = all.substr(0, ends.front());
    const std::size_t begin = large.size();
    CaptureFormat::putVarint(large, Corvid::Event::kMaxFrameBytes + 100);
    large.resize(large.size() + Corvid::Event::kMaxFrameBytes + 100);
    const std::uint32_t check = CaptureFormat::sum(large.data() + begin, large.size() - begin);
    write(large.append(reinterpret_cast<const char*>(&check), sizeof check));
    const auto reader = CaptureReader::open(path, fault);
    CaptureReader::Record record;
    EXPECT_FALSE(reader->next(record));
    // A truncated header is useless.
    for (const std::size_t size : {8, 20, 27, 28, 100}) {
        write(all.substr(0, size));
        EXPECT_EQ(CaptureReader::open(path, fault), nullptr);
        EXPECT_NE(fault.find("damaged or truncated header"), std::string::npos) << fault;
    }
    for (const auto& [at, what] : {std::pair{8, "version 7"}, {10, "version 7 of the protocol"}}) {
        std::string other = all;
        other[static_cast<std::size_t>(at)] = 7;
        const std::size_t header = 28 + bankPath.size() + kSources.size();
        const std::uint32_t sum = CaptureFormat::sum(other.data(), header);
        other.replace(header, 4, reinterpret_cast<const char*>(&sum), 4);
        write(other);
        EXPECT_EQ(CaptureReader::open(path, fault), nullptr);
        EXPECT_NE(fault.find(what), std::string::npos) << fault;
    }
}

TEST_F(Captures, DamageEndsThePlayAndIsToldOnce) {
    record();
    const std::string all = bytes();
    const std::size_t first = 28 + bankPath.size() + kSources.size() + 4;
    for (std::size_t at = first; at < all.size(); at += 37) {
        std::string other = all;
        other[at] = static_cast<char>(other[at] ^ 0x21);
        write(other);
        const auto capture = Capture::load(path, false, problems);
        Diagnostics diagnostics(false);
        Orvel::OwningWorld<> world;
        const auto player = capture->makePlayer(world, LongFiles::AsNeeded);
        player->start();
        player->advance(player->end());
        EXPECT_TRUE(std::isinf(player->nextChange(0)));
        const auto told = diagnostics.take();
        const bool inMark = at >= all.size() - 21; // then the file counts as truncated
        EXPECT_EQ(
            std::count_if(
                told.begin(), told.end(),
                [](const auto& text) { return text.find("damaged") != std::string::npos; }),
            inMark ? 0 : 1)
            << at;
    }
}

TEST(VisibleText, LetsNoControlCharacterThrough) {
    std::ostringstream out;
    {
        VisibleStream filter(out);
        filter << "\x1b[2J\r\t"
               << "\xC2\x9B\x9B\x7F"
               << "\xE2\x80\xAE"
               << "h\u00F6rt \u2026\n"
               << '\a';
    }
    EXPECT_EQ(
        out.str(), "\\x1b[2J\\x0d\t\\xc2\\x9b\\x9b\\x7f\\xe2\\x80\\xaeh\u00F6rt \u2026\n\\x07");
    EXPECT_EQ(visible("a\nb\t"), "a\\nb\\x09");
}

TEST_F(Captures, ARecordingReplacesNothingAndKeepsItsLimit) {
    write("something");
    EXPECT_THROW(CaptureWriter(path, "", "", UINT64_MAX, {}), std::exception);
    Orvel::TransformEvent event;
    event.address(Orvel::CmdSetEmitterTransform, 11);
    const std::string small = folder.file("small.orvelrec");
    CaptureWriter limited(small, "", "", 4000, [](const std::string&) {});
    for (int i = 0; i < 1000; ++i) {
        limited.received(event, "127.0.0.1:65535");
        if (i == 0) {
            limited.lost("127.0.0.1:65535");
        }
    }
    EXPECT_FALSE(limited.finish());
    std::string fault;
    const auto reader = CaptureReader::open(small, fault);
    std::map<CaptureReader::Kind, std::size_t> kinds;
    for (CaptureReader::Record record; reader->next(record);) {
        ++kinds[record.kind];
    }
    EXPECT_EQ(kinds[CaptureReader::Kind::Event], limited.events());
    EXPECT_EQ(kinds[CaptureReader::Kind::Client], 2) << "after a loss it is another client";
    EXPECT_GT(reader->offset(), 3000);
    EXPECT_LE(std::filesystem::file_size(small), 4000);
}
