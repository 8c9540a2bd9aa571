// The host's cost of an emitter's transform sent to sound servers, against encoding a struct into a
// buffer that a thread sends: in frames of 1,000 and of 50 every 10 ms, and flat out.
#include "Net.h"

#include <Corvid/detail/net/Wire.h>

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

using OrvelBench::kEmitters;
constexpr int kSmallFrame = 50;

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
    void frame(int changes) {
        for (int i = 0; i < changes; ++i) {
            scene.move(OrvelBench::transformOf(number++));
        }
        scene.world.update();
    }
    std::uint32_t number = 0;
    Sinks sinks;
    OrvelBench::HostScene<> scene{kEmitters};
};

/// The same without the library: encodes into a buffer, which a thread sends to each socket.
class Appending {
public:
    explicit Appending(int sinkCount) : pairs_(static_cast<std::size_t>(sinkCount)) {
        std::vector<const OrvelBench::Socket*> sockets;
        for (OrvelBench::SocketPair& pair : pairs_) {
            sockets.push_back(&pair.near);
            drains_.emplace_back([&pair] {
                while (pair.far.receive(nullptr, 1U << 20U, MSG_TRUNC) > 0) {
                }
            });
        }
        writer_ = std::make_unique<OrvelBench::BufferedWriter>(std::move(sockets));
    }
    Appending(const Appending&) = delete;
    Appending& operator=(const Appending&) = delete;
    ~Appending() {
        writer_ = nullptr;
        for (const OrvelBench::SocketPair& pair : pairs_) {
            pair.near.end();
        }
        for (std::thread& drain : drains_) {
            drain.join();
        }
    }
    void frame(int changes) {
        for (int i = 0; i < changes; ++i) {
            writer_->append(OrvelBench::transformOf(number_++));
        }
        writer_->flush();
    }

private:
    std::vector<OrvelBench::SocketPair> pairs_;
    std::vector<std::thread> drains_;
    std::unique_ptr<OrvelBench::BufferedWriter> writer_;
    std::uint32_t number_ = 0;
};

/// Seconds per change of a frame, which starts with the next tick.
template <class Side>
double tick(Side& side, int changes) {
    static auto next = OrvelBench::Clock::now();
    next = std::max(next + std::chrono::milliseconds(5), OrvelBench::Clock::now());
    std::this_thread::sleep_until(next); // the two sides alternate, so each has its own every 10 ms
    const auto start = OrvelBench::Clock::now();
    side.frame(changes);
    return OrvelBench::secondsSince(start) / changes;
}

template <class Baseline>
OrvelBench::Comparison
compare(const OrvelBench::Report& report, Sending& figure, Baseline& baseline, int changes) {
    tick(figure, changes);
    tick(baseline, changes);
    OrvelBench::Pairs pairs;
    for (int i = 0; i < (report.quick() ? 5 : 300); ++i) {
        const double one = tick(figure, changes);
        pairs.add(one, tick(baseline, changes));
    }
    return pairs.medians();
}

/// Frames of 1,000 without a pause, less than the lag limit.
OrvelBench::Comparison
flatOut(const OrvelBench::Report& report, Sending& figure, Appending& baseline) {
    const int frames = report.quick() ? 3 : 300;
    const auto cost = [frames](auto& side) {
        std::vector<double> costs;
        for (int i = 0; i < frames; ++i) {
            const auto start = OrvelBench::Clock::now();
            side.frame(kEmitters);
            costs.push_back(OrvelBench::secondsSince(start) / kEmitters);
        }
        return OrvelBench::median(std::move(costs));
    };
    OrvelBench::Pairs pairs;
    for (int i = 0; i < 10; ++i) {
        const double one = cost(figure);
        static_cast<void>(figure.bytesArrived());
        pairs.add(one, cost(baseline));
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
    Appending plain(1);
    Appending plainMany(32);
    OrvelBench::pinTo(0);
    struct Row {
        const char* name;
        OrvelBench::Comparison cost;
        double limit;
    };
    const Row rows[] = {
        {"1 server, 1,000", compare(report, one, plain, kEmitters), 1.5},
        {"1 server, 50", compare(report, one, plain, kSmallFrame), 1.5},
        {"32 servers, 50", compare(report, many, plainMany, kSmallFrame), 1.5},
        {"1 server, flat out", flatOut(report, one, plain), 1.1},
        {"32 servers, 1,000, against 1", compare(report, many, one, kEmitters), 1.5},
    };
    for (const Row& row : rows) {
        report.row(row.name, row.cost, OrvelBench::kNanoseconds, {Aim::Of::Ratio, row.limit});
    }

    const int batches = report.quick() ? 5 : 300;
    const double bytesBefore = one.bytesArrived();
    std::vector<double> wakeUps;
    for (int i = 0; i < batches; ++i) {
        watched = true;
        tick(one, kEmitters);
        watched = false;
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
