// Two servers, of which one stops reading, while the host sends 100,000 events a second. Neither
// the host nor the other server may be affected.
#include "Net.h"

namespace {

using OrvelBench::kEmitters;
constexpr std::size_t kTightLimit = std::size_t{4} << 20U;

/// The result of 1,000 calls every 10 ms.
struct Calls {
    double longest = 0.0;
    long count = 0;
    double bytesKept = 0.0;
};

template <class Call, class AfterBatch>
Calls drive(double seconds, Call&& call, AfterBatch&& afterBatch) {
    Calls calls;
    const auto start = OrvelBench::Clock::now();
    for (auto next = start; OrvelBench::secondsSince(start) < seconds;) {
        next += std::chrono::milliseconds(10);
        auto before = OrvelBench::Clock::now();
        for (int i = 0; i < kEmitters; ++i) {
            call(calls.count++);
            const auto after = OrvelBench::Clock::now();
            calls.longest =
                std::max(calls.longest, std::chrono::duration<double>(after - before).count());
            before = after;
        }
        afterBatch(calls);
        std::this_thread::sleep_until(next);
    }
    return calls;
}

/// How long the system interrupts a thread that hands the same bytes to a sending thread.
double longestInterruption(double seconds) {
    OrvelBench::SocketPair sockets;
    std::thread reader(
        [&] { OrvelBench::receiveTransforms(sockets.far, [](const std::byte* /*frame*/) {}); });
    double longest = 0.0;
    {
        OrvelBench::BufferedWriter writer(sockets.near);
        const auto append = [&](long number) {
            writer.append(OrvelBench::transformOf(static_cast<std::uint32_t>(number)));
        };
        longest = drive(seconds, append, [](Calls&) {}).longest;
    }
    sockets.near.end();
    reader.join();
    return longest;
}

void measure(OrvelBench::Report& report, const std::string& name, std::size_t limit, bool drops) {
    const double seconds = report.quick() ? 0.05 : 3.0;
    OrvelBench::HostScene<> scene(kEmitters);
    Corvid::MultiClient& network = scene.client->multiClient();
    network.setLagLimit(limit);
    OrvelBench::CountingServer good;
    OrvelBench::CountingServer stuck;
    good.run();
    stuck.run();
    scene.waitForServers(2);
    stuck.stop(); // its connection stays open, but is not read

    const auto move = [&](long number) {
        scene.move(OrvelBench::transformOf(static_cast<std::uint32_t>(number)));
    };
    const Calls calls = drive(seconds, move, [&](Calls& so) {
        so.bytesKept = std::max(so.bytesKept, static_cast<double>(network.counters().bytesKept));
    });
    OrvelBench::waitUntil([&] { return good.applied() >= calls.count; }, "end for the good server");
    const auto counters = network.counters();
    if (!report.quick() && drops != (counters.dropped == 1)) {
        OrvelBench::fail(
            drops ? "the server that does not read was not dropped"
                  : "a server was dropped below the limit");
    }
    OrvelBench::Pairs longest;
    longest.add(calls.longest, longestInterruption(seconds));
    report.row("longest call, " + name, longest.medians(), OrvelBench::kMilliseconds);
    report.limit(calls.longest, OrvelBench::kMilliseconds, 1.0);
    report.figure(
        "events the other server lacks", static_cast<double>(calls.count - good.applied()),
        OrvelBench::kTimes, 0);
    report.figure(
        "most memory kept", calls.bytesKept, OrvelBench::kMebibytes,
        static_cast<double>(limit >> 20U) + 1.0);
}

} // namespace

int main(int argc, char** argv) {
    OrvelBench::Report report("One of two servers stops reading", argc, argv);
    OrvelBench::prepareNetwork();
    measure(report, "within the limit", Corvid::MultiCommunicator::kDefaultLagLimit, false);
    measure(report, "beyond the limit", kTightLimit, true);
    return report.finish();
}
