// Connections with keys: the processor share of a host that drives 32 servers, against open
// connections, and the worst delay of a change to a server that strangers flood with handshakes.
#include "Net.h"

#include <Corvid/detail/net/Seal.h>

#include <array>
#include <deque>
#include <fcntl.h>
#include <functional>

namespace {

using Corvid::Keys;
using OrvelBench::Clock;
using OrvelBench::CountingServer;
using OrvelBench::kEmitters;

/// Servers, polled by a thread each.
template <class Server>
class Servers {
public:
    /// `keys`: a key file, or empty.
    Servers(std::size_t count, const std::string& keys) : servers_(count) {
        for (Server& server : servers_) {
            if (!keys.empty() && !server.setKeys(keys)) {
                OrvelBench::fail("the key file cannot be used");
            }
            threads_.emplace_back([this, &server] {
                while (!stopping_) {
                    server.multiServer().waitForCommunicators(std::chrono::milliseconds(50));
                    server.receive(false);
                    server.update();
                }
            });
        }
    }
    Servers(const Servers&) = delete;
    Servers& operator=(const Servers&) = delete;
    ~Servers() {
        stopping_ = true;
        for (std::thread& thread : threads_) {
            thread.join();
        }
    }
    [[nodiscard]] Server& front() { return servers_.front(); }
    [[nodiscard]] double processorTime() {
        double time = 0.0;
        for (std::thread& thread : threads_) {
            time += OrvelBench::processorTime(thread.native_handle());
        }
        return time;
    }

private:
    std::deque<Server> servers_;
    std::vector<std::thread> threads_;
    std::atomic<bool> stopping_ = false;
};

/// Calls `frame` at each tick.
template <class Frame>
void drive(double seconds, std::chrono::microseconds tick, Frame&& frame) {
    const auto start = Clock::now();
    for (auto next = start; OrvelBench::secondsSince(start) < seconds; next += tick) {
        std::this_thread::sleep_until(next);
        frame();
    }
}

/// The processor share of a host that sends 100 changes every 10 ms to 32 servers, in all its
/// threads.
double shareOfHost(const OrvelBench::Report& report, const std::string& keys) {
    constexpr std::size_t kServers = 32;
    constexpr int kChanges = 100;
    Servers<CountingServer> servers(kServers, keys);
    OrvelBench::HostScene<> host(kEmitters, keys);
    host.waitForServers(kServers);
    const auto processorTime = [&servers] {
        timespec time{};
        ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec) -
               servers.processorTime();
    };
    std::uint32_t number = 0;
    const double before = processorTime();
    const auto start = Clock::now();
    drive(report.quick() ? 0.05 : 3.0, std::chrono::milliseconds(10), [&] {
        for (int i = 0; i < kChanges; ++i) {
            host.move(OrvelBench::transformOf(number++));
        }
        host.world.update();
    });
    return (processorTime() - before) / OrvelBench::secondsSince(start);
}

/// Measures the delays of changes whose x is their number.
class TimedServer : public CountingServer {
public:
    static constexpr std::size_t kMaxChanges = 10'000;

    void setEmitterTransform(Orvel::Emitter& emitter) override {
        const auto number = static_cast<std::size_t>(emitter.position().x);
        if (number > 0 && number < kMaxChanges) {
            const std::chrono::nanoseconds sent(sent_[number]);
            const auto delay = Clock::now().time_since_epoch() - sent;
            worst_ = std::max(worst_.load(), std::chrono::duration<double>(delay).count());
        }
        CountingServer::setEmitterTransform(emitter);
    }
    /// Call it before the change with this number.
    void setSent(std::size_t number) {
        sent_[number] = std::chrono::nanoseconds(Clock::now().time_since_epoch()).count();
    }
    /// Call it when all changes have been applied. Begins anew.
    double takeWorst() { return worst_.exchange(0.0); }

private:
    std::array<std::atomic<std::int64_t>, kMaxChanges> sent_{};
    std::atomic<double> worst_ = 0.0;
};

/// The first message of a client with this key.
std::vector<std::byte> helloOf(const Keys::Key& key) {
    const auto seal = Corvid::detail::Seal::connecting(key);
    return {seal->output().begin(), seal->output().end()};
}

/// Programs without a key that begin 500 handshakes a second.
class Strangers {
public:
    /// `burst`: how many begin at once.
    Strangers(std::uint16_t port, const std::string& keys, int burst) {
        Keys known;
        Keys unknown;
        if (!known.load(keys).empty() || !unknown.grant("stranger", Keys::Right::Drive).empty()) {
            OrvelBench::fail("there are no keys");
        }
        // One with an unknown key, one that repeats a holder's message, and a silent one.
        hellos_ = {helloOf(unknown.all()[0]), helloOf(known.all()[0]), {}};
        thread_ = std::thread([this, port, burst] {
            std::size_t count = 0;
            for (auto next = Clock::now(); !stopping_; next += burst * kInterval) {
                std::this_thread::sleep_until(next);
                for (int i = 0; i < burst; ++i) {
                    const auto& hello = hellos_[count++ % hellos_.size()];
                    open_.push_back(OrvelBench::connectTo(port));
                    ::send(open_.back().get(), hello.data(), hello.size(), MSG_NOSIGNAL);
                    if (open_.size() > kMaxOpen) {
                        open_.pop_front();
                    }
                }
            }
        });
    }
    Strangers(const Strangers&) = delete;
    Strangers& operator=(const Strangers&) = delete;
    ~Strangers() {
        stopping_ = true;
        thread_.join();
    }

private:
    static constexpr auto kInterval = std::chrono::milliseconds(2);
    static constexpr std::size_t kMaxOpen = 500;
    std::vector<std::vector<std::byte>> hellos_;
    std::deque<OrvelBench::Socket> open_;
    std::atomic<bool> stopping_ = false;
    std::thread thread_;
};

void measureFlood(OrvelBench::Report& report, const std::string& keys) {
    // The strangers' sockets are in the same process: see Listener's reserveDescriptors().
    ::close(::fcntl(0, F_DUPFD_CLOEXEC, 1020));
    const double seconds = report.quick() ? 0.05 : 4.0;
    Servers<TimedServer> servers(1, keys);
    TimedServer& server = servers.front();
    OrvelBench::HostScene<> host(1, keys);
    host.waitForServers(1);
    const auto worstDelay = [&] {
        const long before = server.applied();
        std::size_t number = 0;
        drive(seconds, std::chrono::milliseconds(1), [&] {
            if (++number < TimedServer::kMaxChanges) {
                server.setSent(number);
                const Orvel::Vec3f place{static_cast<float>(number), 0, 0};
                host.emitters[0]->setTransform(&place, nullptr);
                host.world.update();
            }
        });
        const Orvel::Vec3f rest{};
        host.emitters[0]->setTransform(&rest, nullptr);
        host.world.update();
        OrvelBench::waitUntil(
            [&] { return server.applied() - before > static_cast<long>(number); }, "last change");
        return server.takeWorst();
    };
    worstDelay();
    for (const int burst : {1, 50}) {
        OrvelBench::Pairs worst;
        const double alone = worstDelay();
        const Strangers strangers(server.multiServer().port(), keys, burst);
        worst.add(worstDelay(), alone);
        report.row(
            "worst delay, strangers in bursts of " + std::to_string(burst), worst.medians(),
            OrvelBench::kMilliseconds);
        report.limit(worst.medians().figure, OrvelBench::kMilliseconds, 5.0);
    }
}

} // namespace

int main(int argc, char** argv) {
    OrvelBench::Report report("Connections with keys", argc, argv);
    OrvelBench::prepareNetwork();
    const OrvelBench::KeyFile keys;
    constexpr OrvelBench::Unit kPercent{"%", 100.0};
    OrvelBench::Pairs share;
    const double sealed = shareOfHost(report, keys.path);
    share.add(sealed, shareOfHost(report, ""));
    report.row("host of 32 servers, 10,000 events/s", share.medians(), kPercent);
    report.limit(sealed, kPercent, 10.0);
    measureFlood(report, keys.path);
    return report.finish();
}
