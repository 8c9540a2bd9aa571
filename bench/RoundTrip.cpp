// A command to a server and the duration that comes back, host to host, each side on a processor of
// its own; against raw TCP with a buffered writer, and against raw TCP without threads.
#include "Net.h"

#include <Orvel/Source.h>

#include <memory>
#include <semaphore>

namespace {

/// Measures the duration of a source whenever its state changes.
class Answering : public OrvelBench::CountingServer {
public:
    ~Answering() override { stop(); }
    void setSourceState(Orvel::Source& source) override {
        World::setSourceState(source);
        setSourceDuration(source);
    }
};

struct Hearing : Orvel::World {
    void setSourceDuration(Orvel::Source& /*source*/) override { heard.release(); }
    std::counting_semaphore<> heard{0};
};

template <class Semaphore>
void await(Semaphore& semaphore) {
    if (!semaphore.try_acquire_for(std::chrono::seconds(10))) {
        OrvelBench::fail("there was no answer");
    }
}

class Library {
public:
    Library() {
        server_.createSource(kSource);
        host_.world.createSource(kSource);
        OrvelBench::pinTo(1); // new threads inherit the processor
        server_.run();
        OrvelBench::pinTo(0);
        host_.waitForServers(1);
        OrvelBench::waitUntil([&] { return server_.isReset.load(); }, "replay to the server");
    }
    void operator()() {
        playing_ = !playing_;
        host_.world.getSource(kSource)->setState(
            playing_ ? Orvel::WorldPart::PLAY : Orvel::WorldPart::PAUSE);
        host_.world.update();
        await(host_.world.heard);
    }

private:
    static constexpr int kSource = 1;
    /// Recreates its source after each reset.
    struct Server : Answering {
        ~Server() override { stop(); }
        void resetWorld() override {
            World::resetWorld();
            createSource(kSource);
            isReset = true;
        }
        std::atomic<bool> isReset = false;
    };
    Server server_;
    OrvelBench::HostScene<Hearing> host_{0};
    bool playing_ = false;
};

constexpr std::size_t kCommandBytes = 14;
constexpr std::size_t kAnswerBytes = 19;

void receiveWhole(const OrvelBench::Socket& socket, std::size_t size, bool& open) {
    std::array<std::byte, 64> buffer{};
    std::size_t received = 0;
    while (received < size && open) {
        const std::size_t part = socket.receive(buffer.data(), size - received);
        open = part > 0;
        received += part;
    }
}

/// The host appends to a buffer that a thread sends, and waits for the answer itself.
class RawBuffered {
public:
    RawBuffered() {
        OrvelBench::pinTo(1);
        server_ = std::thread([this] {
            for (bool open = true; open;) {
                receiveWhole(sockets_.far, kCommandBytes, open);
                if (open) {
                    sockets_.far.sendAll(bytes_.data(), kAnswerBytes);
                }
            }
        });
        OrvelBench::pinTo(0);
        writer_ = std::make_unique<OrvelBench::BufferedWriter>(sockets_.near);
    }
    RawBuffered(const RawBuffered&) = delete;
    RawBuffered& operator=(const RawBuffered&) = delete;
    ~RawBuffered() {
        writer_ = nullptr;
        sockets_.near.end();
        server_.join();
    }
    void operator()() {
        writer_->append(bytes_.data(), kCommandBytes);
        writer_->flush();
        bool open = true;
        receiveWhole(sockets_.near, kAnswerBytes, open);
    }

private:
    OrvelBench::SocketPair sockets_;
    std::array<std::byte, 64> bytes_{};
    std::thread server_;
    std::unique_ptr<OrvelBench::BufferedWriter> writer_;
};

/// Only send() and recv().
class RawAlone {
public:
    RawAlone() {
        OrvelBench::pinTo(1);
        server_ = std::thread([this] {
            for (bool open = true; open;) {
                receiveWhole(sockets_.far, kCommandBytes, open);
                if (open) {
                    sockets_.far.sendAll(bytes_.data(), kAnswerBytes);
                }
            }
        });
        OrvelBench::pinTo(0);
    }
    RawAlone(const RawAlone&) = delete;
    RawAlone& operator=(const RawAlone&) = delete;
    ~RawAlone() {
        sockets_.near.end();
        server_.join();
    }
    void operator()() {
        sockets_.near.sendAll(bytes_.data(), kCommandBytes);
        bool open = true;
        receiveWhole(sockets_.near, kAnswerBytes, open);
    }

private:
    OrvelBench::SocketPair sockets_;
    std::array<std::byte, 64> bytes_{};
    std::thread server_;
};

} // namespace

int main(int argc, char** argv) {
    using OrvelBench::Aim;
    OrvelBench::Report report("A command there and its answer back", argc, argv);
    if (std::thread::hardware_concurrency() < 2) {
        OrvelBench::fail("one processor is not enough: each side needs its own");
    }
    OrvelBench::prepareNetwork();
    OrvelBench::pinTo(0);
    Library library;
    RawBuffered rawBuffered;
    RawAlone rawAlone;
    report.row(
        "against a buffered writer", report.compare(1.0, library, rawBuffered),
        OrvelBench::kMicroseconds, {Aim::Of::Ratio, 1.1});
    report.row(
        "against bare send and recv", report.compare(1.0, library, rawAlone),
        OrvelBench::kMicroseconds);
    return report.finish();
}
