// The time from a late server's construction to the last event of a large scene's replay: against
// its bytes over raw TCP plus its events applied to a local world.
#include "Net.h"

#include <Corvid/Event.h>
#include <Corvid/detail/net/Wire.h>
#include <Orvel/CommandEvent.h>

#include <memory>

namespace {

/// A scene in which no emitter has its default values, which would change nothing.
struct Host : OrvelBench::HostScene<> {
    explicit Host(int emitterCount) : HostScene(emitterCount) {
        moveAll();
        for (Orvel::Emitter* emitter : emitters) {
            emitter->setParam(1U, 2.0F, 0.5F);
            emitter->setHull(-2.0F, 3.0F, -1.0F, 1.0F);
            emitter->setState(Orvel::WorldPart::PLAY);
        }
    }
};

/// Detects that the last emitter of a scene plays, which is the last event of its replay.
class LateServer : public OrvelBench::CountingServer {
public:
    explicit LateServer(int emitterCount) : lastId_(emitterCount) {}
    ~LateServer() override { stop(); }
    void setEmitterState(Orvel::Emitter& emitter) override {
        World::setEmitterState(emitter);
        complete_ = emitter.id() == lastId_;
    }
    [[nodiscard]] bool complete() const { return complete_; }
    void check() const {
        if (emitters().size() != static_cast<std::size_t>(lastId_) || applied() != lastId_) {
            OrvelBench::fail(
                "the server has " + std::to_string(emitters().size()) + " emitters, " +
                std::to_string(applied()) + " of which have moved, instead of " +
                std::to_string(lastId_));
        }
    }

private:
    const int lastId_;
    std::atomic<bool> complete_ = false;
};

double join(Host& host) {
    const auto start = OrvelBench::Clock::now();
    LateServer server(static_cast<int>(host.emitters.size()));
    server.run();
    OrvelBench::waitUntil([&] { return server.complete(); }, "whole scene on the server");
    const double seconds = OrvelBench::secondsSince(start);
    server.stop();
    server.check();
    return seconds;
}

/// The bytes of the replay as sent to a server.
std::vector<std::byte> record(Host& host) {
    const OrvelBench::Listening listening;
    Corvid::MultiClient& network = host.client->multiClient();
    network.connectToServer("127.0.0.1", listening.port());
    const OrvelBench::Socket socket = listening.accept();
    network.removeServer("127.0.0.1", listening.port());
    Corvid::detail::Greeting greeting;
    greeting.version = 2;
    greeting.instance = network.instanceId() + 1;
    const auto hello = greeting.encode();
    socket.sendAll(hello.data(), hello.size());
    host.waitForServers(1);
    const auto counters = network.counters().connections.at(0);
    std::vector<std::byte> bytes(hello.size() + counters.bytesWaiting + counters.bytesOut);
    for (std::size_t received = 0; received < bytes.size();) {
        const std::size_t part = socket.receive(bytes.data() + received, bytes.size() - received);
        if (part == 0) {
            OrvelBench::fail("the replay ended early");
        }
        received += part;
    }
    bytes.erase(bytes.begin(), bytes.begin() + hello.size());
    return bytes;
}

double sendRaw(const std::vector<std::byte>& bytes) {
    OrvelBench::SocketPair sockets;
    std::vector<std::byte> received(bytes.size());
    const auto start = OrvelBench::Clock::now();
    std::thread sender([&] { sockets.near.sendAll(bytes.data(), bytes.size()); });
    for (std::size_t size = 0; size < bytes.size();) {
        size += sockets.far.receive(received.data() + size, received.size() - size);
    }
    sender.join();
    return OrvelBench::secondsSince(start);
}

/// Applies decoded events.
double applyHere(const std::vector<std::byte>& bytes, int emitterCount) {
    std::vector<std::unique_ptr<Corvid::Event>> events;
    for (std::span<const std::byte> left = bytes; !left.empty();) {
        const std::size_t size = Corvid::detail::frameSize(left).value();
        events.emplace_back(Corvid::Event::decode(left.first(size)));
        left = left.subspan(size);
    }
    LateServer server(emitterCount);
    const auto start = OrvelBench::Clock::now();
    for (const auto& event : events) {
        server.dispatchEvent(dynamic_cast<Orvel::CommandEvent*>(event.get()));
    }
    const double seconds = OrvelBench::secondsSince(start);
    server.check();
    return seconds;
}

} // namespace

int main(int argc, char** argv) {
    using OrvelBench::Aim;
    OrvelBench::Report report("A server comes late to a scene", argc, argv);
    OrvelBench::prepareNetwork();
    for (const int count : {1000, 30000}) {
        std::vector<std::byte> bytes;
        {
            Host host(count);
            bytes = record(host);
        }
        Host host(count);
        OrvelBench::Pairs pairs;
        for (int i = 0; i < (report.quick() ? 1 : 15); ++i) {
            const double joined = join(host);
            host.waitForServers(0);
            pairs.add(joined, sendRaw(bytes) + applyHere(bytes, count));
        }
        report.row(
            std::to_string(count) + " emitters, " + std::to_string(bytes.size() >> 10U) + " KiB",
            pairs.medians(), OrvelBench::kMilliseconds,
            count == 30000 ? Aim{Aim::Of::Ratio, 2.0} : Aim{});
    }
    return report.finish();
}
