// The throughput of transforms from a host's world to a server's, against raw TCP in large batches
// with only the decoding and the look-up, and against ZeroMQ with all of the same work.
#include "Net.h"

#include <Corvid/Event.h>
#include <Orvel/CommandEvent.h>
#include <Orvel/TransformEvent.h>

#include <memory>
#ifdef ORVEL_HAS_ZMQ
#include <zmq.h>
#endif

namespace {

constexpr int kEmitters = 1000;

/// A way to move the emitters of another world. Each round moves all emitters several times.
class Way {
public:
    Way() {
        for (int i = 0; i < kEmitters; ++i) {
            server.createEmitter({}, i + 1);
        }
    }
    Way(const Way&) = delete;
    Way& operator=(const Way&) = delete;
    virtual ~Way() = default;

    /// Seconds per event, until the last is applied.
    double round(int passes) {
        const long target = server.applied() + long{passes} * kEmitters;
        const auto start = OrvelBench::Clock::now();
        for (int i = 0; i < passes; ++i) {
            sendAll();
        }
        OrvelBench::waitUntil(
            [&] { return server.applied() >= target; }, "end to a round: events were lost");
        if (server.applied() != target) {
            OrvelBench::fail("more events were applied than sent");
        }
        return OrvelBench::secondsSince(start) / (double{kEmitters} * passes);
    }

protected:
    virtual void sendAll() = 0;
    OrvelBench::CountingServer server;
};

class Library : public Way {
public:
    Library() {
        host_ = std::make_unique<OrvelBench::HostScene<>>(kEmitters);
        server.run();
        host_->waitForServers(1);
        // The replay, which recreates the server's emitters, moves none.
        round(1);
    }

private:
    void sendAll() override { host_->moveAll(); }
    std::unique_ptr<OrvelBench::HostScene<>> host_;
};

/// Sends encoded batches, and decodes only the necessary fields.
class RawTcp : public Way {
public:
    RawTcp() {
        for (unsigned pass = 0; pass < 2; ++pass) {
            Orvel::TransformEvent event;
            std::vector<std::byte> frame;
            event.position = OrvelBench::HostScene<>::position(pass);
            for (int id = 1; id <= kEmitters; ++id) {
                event.address(Orvel::CmdSetEmitterTransform, id);
                event.encode(frame);
                batches_[pass].insert(batches_[pass].end(), frame.begin(), frame.end());
            }
        }
        receiver_ = std::thread([this] {
            OrvelBench::receiveTransforms(sockets_.far, [this](auto frame) { apply(frame); });
        });
    }
    ~RawTcp() override {
        sockets_.near.end();
        receiver_.join();
    }

private:
    void sendAll() override {
        const auto& batch = batches_[++pass_ % 2];
        sockets_.near.sendAll(batch.data(), batch.size());
    }
    void apply(std::span<const std::byte> frame) {
        std::uint32_t length = 0;
        std::int16_t command = 0;
        std::int16_t id = 0;
        std::memcpy(&length, frame.data(), sizeof length);
        std::memcpy(&command, frame.data() + 9, sizeof command);
        std::memcpy(&id, frame.data() + 12, sizeof id);
        std::array<float, 7> values{};
        bool good = length == OrvelBench::kTransformBytes - 4 && frame[8] == kShort &&
                    frame[11] == kShort && command == Orvel::CmdSetEmitterTransform;
        for (std::size_t i = 0; i < values.size(); ++i) {
            good = good && frame[14 + 5 * i] == kFloat;
            std::memcpy(&values[i], frame.data() + 15 + 5 * i, sizeof(float));
        }
        Orvel::Emitter* emitter = server.getEmitter(id);
        if (!good || emitter == nullptr) {
            OrvelBench::fail("raw TCP brought something else");
        }
        const Orvel::Vec3f position{values[0], values[1], values[2]};
        const Orvel::Quaternion rotation{values[3], values[4], values[5], values[6]};
        emitter->setTransform(&position, &rotation);
    }

    static constexpr std::byte kFloat{2};
    static constexpr std::byte kShort{5};
    OrvelBench::SocketPair sockets_;
    std::array<std::vector<std::byte>, 2> batches_;
    unsigned pass_ = 0;
    std::thread receiver_;
};

#ifdef ORVEL_HAS_ZMQ
/// The library's world, events, decoding and application, connected by ZeroMQ.
class ZeroMq : public Way, private Corvid::Sender {
public:
    ZeroMq() {
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
        receiver_ = std::thread([this] { receive(); });
    }
    ~ZeroMq() override {
        zmq_send(push_, "", 0, 0);
        receiver_.join();
        zmq_close(push_);
        zmq_close(pull_);
        zmq_ctx_term(context_);
    }

private:
    void sendAll() override {
        const Orvel::Vec3f to = OrvelBench::HostScene<>::position(++pass_);
        for (int id = 1; id <= kEmitters; ++id) {
            Orvel::TransformEvent event;
            event.address(Orvel::CmdSetEmitterTransform, id);
            event.position = to;
            event.send(this);
        }
    }
    bool sendFrame(const std::byte* frame, std::size_t size) override {
        return zmq_send(push_, frame, size, 0) >= 0;
    }
    void receive() {
        std::array<std::byte, 256> frame{};
        for (;;) {
            const int size = zmq_recv(pull_, frame.data(), frame.size(), 0);
            if (size <= 0) {
                return;
            }
            const std::unique_ptr<Corvid::Event> event(
                Corvid::Event::decode({frame.data(), static_cast<std::size_t>(size)}));
            server.dispatchEvent(dynamic_cast<Orvel::CommandEvent*>(event.get()));
        }
    }

    void* context_ = zmq_ctx_new();
    void* push_ = zmq_socket(context_, ZMQ_PUSH);
    void* pull_ = zmq_socket(context_, ZMQ_PULL);
    unsigned pass_ = 0;
    std::thread receiver_;
};
#endif

OrvelBench::Comparison compare(const OrvelBench::Report& report, Way& one, Way& other) {
    const int passes = report.quick() ? 2 : 200;
    one.round(passes);
    other.round(passes);
    OrvelBench::Pairs pairs;
    const auto start = OrvelBench::Clock::now();
    while (pairs.size() < 5 || OrvelBench::secondsSince(start) < 2.0 * report.budget()) {
        if (pairs.size() % 2 == 0) {
            const double a = one.round(passes);
            pairs.add(a, other.round(passes));
        } else {
            const double b = other.round(passes);
            pairs.add(one.round(passes), b);
        }
    }
    return pairs.medians();
}

} // namespace

int main(int argc, char** argv) {
    using OrvelBench::Aim;
    OrvelBench::Report report("A transform from a host's world into a server's", argc, argv);
    OrvelBench::prepareNetwork();
    Library library;
    RawTcp raw;
    report.row(
        "against raw TCP", compare(report, library, raw), OrvelBench::kNanoseconds,
        {Aim::Of::Ratio, 1.0 / 0.35});
#ifdef ORVEL_HAS_ZMQ
    ZeroMq zeroMq;
    report.row(
        "against ZeroMQ PUSH/PULL", compare(report, library, zeroMq), OrvelBench::kNanoseconds,
        {Aim::Of::Ratio, 1.0});
#else
    std::fprintf(stderr, "note: built without libzmq3-dev, so there is no row about ZeroMQ\n");
#endif
    return report.finish();
}
