// The way of transforms from a host's world to the worlds of 1 and 32 servers, flat out: the time,
// and the receivers' processor time, against plain structs over raw TCP and over ZeroMQ.
#include "Net.h"

#include <cstdio>
#include <deque>
#include <functional>
#ifdef ORVEL_HAS_ZMQ
#include <zmq.h>
#endif

namespace {

using OrvelBench::kEmitters;

/// A way to move the emitters of other scenes.
class Way {
public:
    Way() = default;
    Way(const Way&) = delete;
    Way& operator=(const Way&) = delete;
    virtual ~Way() = default;

    struct Cost {
        double time;      ///< until the last receiver has applied the last event
        double processor; ///< of the receivers
    };
    /// Seconds per event and receiver.
    Cost round(int events) {
        target_ += events;
        const double before = processorTime();
        const auto start = OrvelBench::Clock::now();
        for (int i = 0; i < events; ++i) {
            send(OrvelBench::transformOf(number_++));
        }
        flush();
        OrvelBench::waitUntil([&] { return applied() >= target_; }, "end to a round");
        const double time = OrvelBench::secondsSince(start);
        if (applied() != target_) {
            OrvelBench::fail("more events were applied than sent");
        }
        const double all = static_cast<double>(events) * static_cast<double>(threads_.size());
        return {time / all, (processorTime() - before) / all};
    }

protected:
    virtual void send(const OrvelBench::Transform& transform) = 0;
    virtual void flush() = 0;
    /// By the receiver that is behind the others.
    [[nodiscard]] virtual long applied() const = 0;

    void startReceiver(std::function<void()> main) { threads_.emplace_back(std::move(main)); }
    void join() {
        for (std::thread& thread : threads_) {
            thread.join();
        }
    }

private:
    double processorTime() {
        double time = 0.0;
        for (std::thread& thread : threads_) {
            time += OrvelBench::processorTime(thread.native_handle());
        }
        return time;
    }

    std::vector<std::thread> threads_;
    std::uint32_t number_ = 0;
    long target_ = 0;
};

/// Polled servers, each on its thread.
class Library : public Way {
public:
    /// `keys`: a key file, or empty.
    explicit Library(int receivers, const std::string& keys = "")
        : servers_(static_cast<std::size_t>(receivers)) {
        host_ = std::make_unique<OrvelBench::HostScene<>>(kEmitters, keys);
        for (OrvelBench::CountingServer& server : servers_) {
            if (!keys.empty() && !server.setKeys(keys)) {
                OrvelBench::fail("the key file cannot be used");
            }
            startReceiver([this, &server] {
                while (!stopping_) {
                    server.multiServer().waitForCommunicators(std::chrono::milliseconds(50));
                    server.receive(false);
                    server.update();
                }
            });
        }
        host_->waitForServers(servers_.size());
        // The replay, which recreates the servers' emitters, moves none.
        round(kEmitters);
    }
    ~Library() override {
        stopping_ = true;
        join();
    }

private:
    void send(const OrvelBench::Transform& transform) override { host_->move(transform); }
    void flush() override { host_->world.update(); }
    [[nodiscard]] long applied() const override {
        long least = servers_.front().applied();
        for (const OrvelBench::CountingServer& server : servers_) {
            least = std::min(least, server.applied());
        }
        return least;
    }

    std::deque<OrvelBench::CountingServer> servers_;
    std::unique_ptr<OrvelBench::HostScene<>> host_;
    std::atomic<bool> stopping_ = false;
};

/// A scene of structs, and how many events it has applied.
struct Receiver {
    void apply(const std::byte* frame) {
        scene.apply(frame);
        applied.store(applied.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    }
    OrvelBench::PlainScene scene;
    std::atomic<long> applied = 0;
};

class Plain : public Way {
protected:
    explicit Plain(int receivers) : receivers_(static_cast<std::size_t>(receivers)) {}
    [[nodiscard]] long applied() const override {
        long least = receivers_.front().applied;
        for (const Receiver& receiver : receivers_) {
            least = std::min<long>(least, receiver.applied);
        }
        return least;
    }
    std::deque<Receiver> receivers_;
};

class RawTcp : public Plain {
public:
    explicit RawTcp(int receivers) : Plain(receivers), pairs_(receivers_.size()) {
        std::vector<const OrvelBench::Socket*> sockets;
        for (std::size_t i = 0; i < pairs_.size(); ++i) {
            sockets.push_back(&pairs_[i].near);
            startReceiver([this, i] {
                OrvelBench::receiveTransforms(
                    pairs_[i].far, [&](const std::byte* frame) { receivers_[i].apply(frame); });
            });
        }
        writer_ = std::make_unique<OrvelBench::BufferedWriter>(std::move(sockets));
    }
    ~RawTcp() override {
        writer_ = nullptr;
        for (const OrvelBench::SocketPair& pair : pairs_) {
            pair.near.end();
        }
        join();
    }

private:
    void send(const OrvelBench::Transform& transform) override { writer_->append(transform); }
    void flush() override { writer_->flush(); }

    std::vector<OrvelBench::SocketPair> pairs_;
    std::unique_ptr<OrvelBench::BufferedWriter> writer_;
};

#ifdef ORVEL_HAS_ZMQ
/// PUSH and PULL.
class ZeroMq : public Plain {
public:
    ZeroMq() : Plain(1) {
        const int unlimited = 0;
        zmq_setsockopt(pull_, ZMQ_RCVHWM, &unlimited, sizeof unlimited);
        zmq_setsockopt(push_, ZMQ_SNDHWM, &unlimited, sizeof unlimited);
        std::array<char, 64> endpoint{};
        std::size_t size = endpoint.size();
        if (zmq_bind(pull_, "tcp://127.0.0.1:*") != 0 ||
            zmq_getsockopt(pull_, ZMQ_LAST_ENDPOINT, endpoint.data(), &size) != 0 ||
            zmq_connect(push_, endpoint.data()) != 0) {
            OrvelBench::fail("ZeroMQ does not connect on loopback");
        }
        startReceiver([this] {
            std::array<std::byte, 256> frame{};
            while (zmq_recv(pull_, frame.data(), frame.size(), 0) > 0) {
                receivers_.front().apply(frame.data());
            }
        });
    }
    ~ZeroMq() override {
        zmq_send(push_, "", 0, 0);
        join();
        zmq_close(push_);
        zmq_close(pull_);
        zmq_ctx_term(context_);
    }

private:
    void send(const OrvelBench::Transform& transform) override {
        std::array<std::byte, OrvelBench::kTransformBytes> frame;
        OrvelBench::encode(frame.data(), transform);
        zmq_send(push_, frame.data(), frame.size(), 0);
    }
    void flush() override {}

    void* context_ = zmq_ctx_new();
    void* push_ = zmq_socket(context_, ZMQ_PUSH);
    void* pull_ = zmq_socket(context_, ZMQ_PULL);
};
#endif

struct Comparisons {
    OrvelBench::Comparison time;
    OrvelBench::Comparison processor;
};

Comparisons compare(const OrvelBench::Report& report, Way& one, Way& other, int events) {
    if (report.quick()) {
        events = 2 * kEmitters;
    }
    one.round(events);
    other.round(events);
    OrvelBench::Pairs times;
    OrvelBench::Pairs processor;
    const auto add = [&](const Way::Cost& a, const Way::Cost& b) {
        times.add(a.time, b.time);
        processor.add(a.processor, b.processor);
    };
    const auto start = OrvelBench::Clock::now();
    while (times.size() < 5 || OrvelBench::secondsSince(start) < 2.0 * report.budget()) {
        if (times.size() % 2 == 0) {
            const Way::Cost a = one.round(events);
            add(a, other.round(events));
        } else {
            const Way::Cost b = other.round(events);
            add(one.round(events), b);
        }
    }
    return {times.medians(), processor.medians()};
}

} // namespace

int main(int argc, char** argv) {
    using OrvelBench::Aim;
    constexpr int kEvents = 200'000;
    OrvelBench::Report report("Transforms from a host's world into servers' worlds", argc, argv);
    OrvelBench::prepareNetwork();
    {
        Library library(1);
        RawTcp raw(1);
        const Comparisons both = compare(report, library, raw, kEvents);
        report.row("raw TCP: time", both.time, OrvelBench::kNanoseconds, {Aim::Of::Ratio, 2.0});
        report.row(
            "raw TCP: receiver's processor time", both.processor, OrvelBench::kNanoseconds,
            {Aim::Of::Ratio, 2.0});
#ifdef ORVEL_HAS_ZMQ
        ZeroMq zeroMq;
        report.row(
            "ZeroMQ PUSH/PULL: time", compare(report, library, zeroMq, kEvents).time,
            OrvelBench::kNanoseconds, {Aim::Of::Ratio, 1.0});
#else
        std::fprintf(stderr, "note: built without libzmq3-dev, so there is no row about ZeroMQ\n");
#endif
    }
    {
        const OrvelBench::KeyFile keys;
        Library sealed(1, keys.path);
        Library open(1);
        report.row(
            "sealed against open: time", compare(report, sealed, open, kEvents).time,
            OrvelBench::kNanoseconds, {Aim::Of::Difference, 30.0});
    }
    Library library(32);
    RawTcp raw(32);
    report.row(
        "raw TCP, 32 receivers: time", compare(report, library, raw, kEvents / 20).time,
        OrvelBench::kNanoseconds, {Aim::Of::Ratio, 2.0});
    return report.finish();
}
