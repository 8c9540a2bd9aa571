// Two servers, of which one stops reading, while the host sends 100,000 events a second. Neither
// the host nor the other server may notice.
#include "Net.h"

namespace {

constexpr int kEmitters = 1000;
constexpr std::size_t kTightLimit = std::size_t{4} << 20U;

/// The longest call of a setter and the number of calls, with 1,000 every 10 ms.
struct Calls {
    double longest = 0.0;
    long count = 0;
    double bytesKept = 0.0;
};

template <class Scene, class AfterEach>
Calls drive(Scene& scene, double seconds, AfterEach&& afterEach) {
    Calls calls;
    const auto start = OrvelBench::Clock::now();
    auto next = start;
    while (OrvelBench::secondsSince(start) < seconds) {
        next += std::chrono::milliseconds(10);
        const Orvel::Vec3f to = OrvelBench::HostScene<>::position(++scene.pass);
        auto before = OrvelBench::Clock::now();
        for (Orvel::Emitter* emitter : scene.emitters) {
            emitter->setTransform(&to, nullptr);
            const auto after = OrvelBench::Clock::now();
            calls.longest =
                std::max(calls.longest, std::chrono::duration<double>(after - before).count());
            before = after;
        }
        calls.count += kEmitters;
        afterEach(calls);
        std::this_thread::sleep_until(next);
    }
    return calls;
}

/// The same without a network, to see how long the system interrupts whoever does anything.
double longestInterruption(double seconds) {
    struct {
        Orvel::World world;
        std::vector<Orvel::Emitter*> emitters;
        unsigned pass = 0;
    } scene;
    scene.world.addBackend("silent", "");
    for (int i = 0; i < kEmitters; ++i) {
        scene.emitters.push_back(scene.world.createEmitter());
    }
    const double longest = drive(scene, seconds, [](Calls&) {}).longest;
    scene.world.clearWorld();
    scene.world.deleteAllBackends();
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
    stuck.stop(); // its connection stays, and nobody reads it

    Calls calls = drive(scene, seconds, [&](Calls& so) {
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
