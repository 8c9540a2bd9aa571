// The host's cost of an emitter's transform sent to sound servers, against appending the same bytes
// to a buffer that a thread sends: 1,000 every 10 ms, as in a frame loop.
#include "Net.h"

#include <Corvid/detail/net/wire.h>

#include <memory>
#include <new>
#include <poll.h>
#include <sys/syscall.h>

namespace {

// Counters of the host's thread while it is watched. Its only call of write() wakes the I/O thread.
thread_local bool watched = false;
thread_local long allocations = 0;
thread_local long writeCalls = 0;

void* allocate(std::size_t size) {
    allocations += watched ? 1 : 0;
    void* memory = std::malloc(size); // NOLINT(cppcoreguidelines-no-malloc)
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

} // namespace

// NOLINTBEGIN(cppcoreguidelines-no-malloc): these replace the standard ones
void* operator new(std::size_t size) {
    return allocate(size);
}
void* operator new[](std::size_t size) {
    return allocate(size);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}
// NOLINTEND(cppcoreguidelines-no-malloc)

extern "C" ssize_t write(int descriptor, const void* data, size_t size) {
    writeCalls += watched ? 1 : 0;
    return ::syscall(SYS_write, descriptor, data, size);
}

namespace {

constexpr int kEmitters = 1000;

/// Servers that greet and then discard all data, so that many of them do not take processor time
/// from the measured thread.
class Sinks {
public:
    explicit Sinks(int count) : listening_(static_cast<std::size_t>(count)) {}
    Sinks(const Sinks&) = delete;
    Sinks& operator=(const Sinks&) = delete;
    ~Sinks() {
        for (const Socket& connection : connections_) {
            connection.end();
        }
        thread_.join();
    }

    void connect(Corvid::MultiClient& client) {
        for (std::size_t i = 0; i < listening_.size(); ++i) {
            client.connectToServer("127.0.0.1", listening_[i].port());
            connections_.push_back(listening_[i].accept());
            Corvid::detail::Greeting greeting;
            greeting.version = 2;
            greeting.instance = client.instanceId() + i + 1;
            const auto bytes = greeting.encode();
            connections_.back().sendAll(bytes.data(), bytes.size());
        }
        thread_ = std::thread([this] { run(); });
    }
    /// Bytes received by the first one.
    [[nodiscard]] std::uint64_t bytes() const { return bytes_; }

private:
    using Socket = OrvelBench::Socket;

    void run() {
        std::vector<pollfd> polled;
        for (const Socket& connection : connections_) {
            polled.push_back({connection.get(), POLLIN, 0});
        }
        std::size_t open = polled.size();
        while (open > 0 && ::poll(polled.data(), polled.size(), 10000) > 0) {
            for (std::size_t i = 0; i < polled.size(); ++i) {
                if (polled[i].revents == 0) {
                    continue;
                }
                // MSG_TRUNC discards received data instead of copying it.
                const std::size_t size = connections_[i].receive(nullptr, 1U << 20U, MSG_TRUNC);
                bytes_ += i == 0 ? size : 0;
                if (size == 0) {
                    polled[i].fd = -1;
                    --open;
                }
            }
        }
    }

    std::vector<OrvelBench::Listening> listening_;
    std::vector<Socket> connections_;
    std::atomic<std::uint64_t> bytes_ = 0;
    std::thread thread_;
};

/// A scene connected to such servers.
struct Sending {
    explicit Sending(int sinkCount) : sinks(sinkCount) {
        sinks.connect(scene.client->multiClient());
        scene.waitForServers(static_cast<std::size_t>(sinkCount));
    }
    /// Bytes received by the first server, once everything has arrived.
    [[nodiscard]] double bytesArrived() const {
        const auto settled = [&] {
            constexpr std::size_t kGreeting = Corvid::detail::Greeting::kSize;
            const auto one = scene.client->multiClient().counters().connections.at(0);
            return one.bytesWaiting == 0 && sinks.bytes() == one.bytesOut + kGreeting;
        };
        OrvelBench::waitUntil(settled, "arrival of everything");
        return static_cast<double>(sinks.bytes());
    }
    Sinks sinks;
    OrvelBench::HostScene<> scene{kEmitters};
};

/// Blocks of the size of a transform, appended to a buffer; a thread sends them to another socket.
class Appending {
public:
    Appending()
        : drain_([this] {
              while (sockets_.far.receive(nullptr, 1U << 20U, MSG_TRUNC) > 0) {
              }
          }) {}
    Appending(const Appending&) = delete;
    Appending& operator=(const Appending&) = delete;
    ~Appending() {
        sockets_.near.end();
        drain_.join();
    }
    void appendAll() {
        for (std::size_t i = 0; i < frames_.size(); i += OrvelBench::kTransformBytes) {
            writer_.append(frames_.data() + i, OrvelBench::kTransformBytes);
        }
    }

private:
    OrvelBench::SocketPair sockets_;
    std::vector<std::byte> frames_ =
        std::vector<std::byte>(kEmitters * OrvelBench::kTransformBytes);
    std::thread drain_;
    OrvelBench::BufferedWriter writer_{sockets_.near};
};

/// Seconds per change of a batch, which starts with the next tick.
template <class Work>
double tick(Work&& work) {
    static auto next = OrvelBench::Clock::now();
    next = std::max(next + std::chrono::milliseconds(5), OrvelBench::Clock::now());
    std::this_thread::sleep_until(next); // the two sides alternate, so each has its own every 10 ms
    const auto start = OrvelBench::Clock::now();
    work();
    return OrvelBench::secondsSince(start) / kEmitters;
}

template <class Figure, class Baseline>
OrvelBench::Comparison
compare(const OrvelBench::Report& report, Figure&& figure, Baseline&& baseline) {
    tick(figure);
    tick(baseline);
    OrvelBench::Pairs pairs;
    for (int i = 0; i < (report.quick() ? 5 : 300); ++i) {
        const double one = tick(figure);
        pairs.add(one, tick(baseline));
    }
    return pairs.medians();
}

} // namespace

int main(int argc, char** argv) {
    using OrvelBench::Aim;
    OrvelBench::Report report("A transform to sound servers, for the host", argc, argv);
    OrvelBench::prepareNetwork();

    // The sending and receiving threads start on another processor, if there is one; beside the
    // host's thread they would interrupt it, which would dominate the comparison.
    OrvelBench::pinTo(1);
    Sending one(1);
    Sending many(32);
    Appending appending;
    OrvelBench::pinTo(0);
    const auto moveOne = [&] { one.scene.moveAll(); };
    const auto append = [&] { appending.appendAll(); };
    report.row(
        "1 server", compare(report, moveOne, append), OrvelBench::kNanoseconds,
        {Aim::Of::Ratio, 1.5});
    report.row(
        "32 servers",
        compare(
            report, [&] { many.scene.moveAll(); }, append),
        OrvelBench::kNanoseconds);
    report.row(
        "32 servers, against 1",
        compare(
            report, [&] { many.scene.moveAll(); }, moveOne),
        OrvelBench::kNanoseconds, {Aim::Of::Ratio, 1.5});

    const int batches = report.quick() ? 5 : 300;
    const double bytesBefore = one.bytesArrived();
    std::vector<double> wakeUps;
    for (int i = 0; i < batches; ++i) {
        tick([&] {
            watched = true;
            one.scene.moveAll();
            watched = false;
        });
        wakeUps.push_back(static_cast<double>(std::exchange(writeCalls, 0)));
    }
    report.figure(
        "bytes of a transform on the wire",
        (one.bytesArrived() - bytesBefore) / (double{kEmitters} * batches), OrvelBench::kBytes,
        OrvelBench::kTransformBytes);
    // Some batches are interrupted, and all queued data is sent meanwhile.
    report.figure("wake-ups in a batch", OrvelBench::median(wakeUps), OrvelBench::kTimes, 1);
    report.figure(
        "allocations in all batches", static_cast<double>(allocations), OrvelBench::kTimes, 0);
    return report.finish();
}
