// The cost of an event for a server with 1 and with 100 clients, and the cost of an idle client and
// server.
#include "Net.h"

#include <Corvid/detail/net/Wire.h>
#include <Orvel/CommandEvent.h>
#include <Orvel/TransformEvent.h>

#include <ctime>

namespace {

using OrvelBench::kEmitters;
constexpr int kEvents = 20000; // per round

/// A polled server and its clients, which share the events of a round. Everything happens on one
/// thread: events are queued in the sockets until the server reads.
class Crowd {
public:
    explicit Crowd(int clientCount) {
        Corvid::detail::Greeting greeting;
        greeting.version = 2;
        for (int i = 0; i < clientCount; ++i) {
            clients_.push_back(OrvelBench::connectTo(server_.multiServer().port()));
            greeting.instance = static_cast<std::uint64_t>(i) + 1;
            const auto bytes = greeting.encode();
            clients_.back().sendAll(bytes.data(), bytes.size());
            OrvelBench::waitUntil(
                [&] {
                    server_.receive(false);
                    return server_.multiServer().counters().connections.size() == clients_.size();
                },
                "client");
        }
        for (int i = 0; i < kEmitters; ++i) {
            server_.createEmitter({}, i + 1);
        }
    }

    /// Seconds per event.
    double round() {
        const Orvel::Vec3f to = OrvelBench::HostScene<>::position(++pass_);
        std::vector<std::byte> bytes;
        std::vector<std::byte> frame;
        const int each = kEvents / static_cast<int>(clients_.size());
        int id = 0;
        for (const OrvelBench::Socket& client : clients_) {
            bytes.clear();
            for (int i = 0; i < each; ++i, ++id) {
                Orvel::TransformEvent event;
                event.address(
                    Orvel::CmdSetEmitterTransform,
                    1 + static_cast<int>(
                            OrvelBench::permuted(static_cast<std::size_t>(id), kEmitters)));
                event.position = to;
                event.position.z = static_cast<float>(id / kEmitters); // each changes a value
                event.encode(frame);
                bytes.insert(bytes.end(), frame.begin(), frame.end());
            }
            client.sendAll(bytes.data(), bytes.size());
        }
        const long target = server_.applied() + kEvents;
        const auto start = OrvelBench::Clock::now();
        while (server_.applied() < target) {
            server_.receive(false);
            if (OrvelBench::secondsSince(start) > 10.0) {
                OrvelBench::fail("events were lost");
            }
        }
        return OrvelBench::secondsSince(start) / kEvents;
    }

private:
    OrvelBench::CountingServer server_;
    std::vector<OrvelBench::Socket> clients_;
    unsigned pass_ = 0;
};

/// Processor time of this process per second.
double load(double seconds) {
    const auto used = [] {
        timespec time{};
        ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
    };
    const double before = used();
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    return (used() - before) / seconds;
}

} // namespace

int main(int argc, char** argv) {
    using OrvelBench::Aim;
    OrvelBench::Report report("Receiving, and doing nothing", argc, argv);
    OrvelBench::prepareNetwork();
    {
        Crowd one(1);
        Crowd hundred(100);
        OrvelBench::Pairs pairs;
        for (int i = 0; i < (report.quick() ? 2 : 200); ++i) {
            const double figure = hundred.round();
            pairs.add(figure, one.round());
        }
        report.row(
            "100 clients, against 1", pairs.medians(), OrvelBench::kNanoseconds,
            {Aim::Of::Ratio, 1.3});
    }
    OrvelBench::HostScene<> host(kEmitters);
    OrvelBench::CountingServer server;
    server.run();
    host.waitForServers(1);
    const double seconds = report.quick() ? 0.05 : 5.0;
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds / 10.0));
    report.figure(
        "idle client and server, ms of each s", load(seconds), OrvelBench::kMilliseconds, 1.0);
    return report.finish();
}
