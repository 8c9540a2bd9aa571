#pragma once

#include "Ratio.h"

#include <Corvid/MultiClient.h>
#include <Corvid/MultiServer.h>
#include <Orvel/ClientBackend.h>
#include <Orvel/Emitter.h>
#include <Orvel/Log.h>
#include <Orvel/OwningWorld.h>
#include <Orvel/Server.h>
#include <Orvel/World.h>

#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iostream>
#include <mutex>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <pthread.h>
#include <sched.h>
#include <span>
#include <sys/socket.h>
#include <sys/time.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace OrvelBench {

using namespace std::chrono_literals;

constexpr std::size_t kTransformBytes = 49;

// Raw sockets on loopback

/// A descriptor that is closed by the destructor. A failure, or a wait of ten seconds, ends the
/// program.
class Socket {
public:
    Socket() = default;
    explicit Socket(int descriptor) : descriptor_(descriptor) {
        if (descriptor_ < 0) {
            fail(std::string("no socket: ") + std::strerror(errno));
        }
        const timeval patience{10, 0};
        ::setsockopt(descriptor_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        ::setsockopt(descriptor_, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    }
    Socket(Socket&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    Socket& operator=(Socket&& other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    ~Socket() {
        if (descriptor_ >= 0) {
            ::close(descriptor_);
        }
    }
    [[nodiscard]] int get() const { return descriptor_; }

    void sendAll(const void* data, std::size_t size) const {
        const auto* bytes = static_cast<const char*>(data);
        while (size > 0) {
            const ssize_t sent = ::send(descriptor_, bytes, size, MSG_NOSIGNAL);
            if (sent <= 0) {
                fail("a raw socket did not take its data");
            }
            bytes += sent;
            size -= static_cast<std::size_t>(sent);
        }
    }
    /// Reads the available bytes; 0 if the peer has closed.
    [[nodiscard]] std::size_t receive(void* data, std::size_t size, int flags = 0) const {
        const ssize_t received = ::recv(descriptor_, data, size, flags);
        if (received < 0) {
            fail(std::string("a raw socket gave nothing: ") + std::strerror(errno));
        }
        return static_cast<std::size_t>(received);
    }
    void end() const { ::shutdown(descriptor_, SHUT_RDWR); }

private:
    int descriptor_ = -1;
};

inline sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

inline std::uint16_t bindToFreePort(const Socket& socket) {
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    auto* plain = reinterpret_cast<sockaddr*>(&address);
    if (::bind(socket.get(), plain, size) != 0 || ::getsockname(socket.get(), plain, &size) != 0) {
        fail("no free port on loopback");
    }
    return ntohs(address.sin_port);
}

inline Socket connectTo(std::uint16_t port) {
    Socket socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_in address = loopback(port);
    if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        fail(std::string("cannot connect on loopback: ") + std::strerror(errno));
    }
    const int yes = 1;
    ::setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    return socket;
}

class Listening {
public:
    Listening() : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        port_ = bindToFreePort(socket_);
        if (::listen(socket_.get(), 16) != 0) {
            fail("cannot listen on loopback");
        }
    }
    [[nodiscard]] std::uint16_t port() const { return port_; }
    [[nodiscard]] Socket accept() const {
        Socket socket(::accept(socket_.get(), nullptr, nullptr));
        const int yes = 1;
        ::setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
        return socket;
    }

private:
    Socket socket_;
    std::uint16_t port_;
};

/// Two ends of a TCP connection.
struct SocketPair {
    SocketPair() {
        const Listening listening;
        near = connectTo(listening.port());
        far = listening.accept();
    }
    Socket near, far;
};

/// The obvious non-blocking sender: bytes are appended to a buffer under a mutex, and a thread
/// sends them. The thread is only notified if it waits.
class BufferedWriter {
public:
    explicit BufferedWriter(const Socket& socket) : socket_(socket) {
        buffer_.reserve(1U << 20U);
        out_.reserve(1U << 20U);
        thread_ = std::thread([this] { run(); });
    }
    BufferedWriter(const BufferedWriter&) = delete;
    BufferedWriter& operator=(const BufferedWriter&) = delete;
    ~BufferedWriter() {
        {
            const std::scoped_lock lock(mutex_);
            closed_ = true;
            waiting_ = false;
        }
        wakeUp_.notify_one();
        thread_.join();
    }

    void append(const std::byte* bytes, std::size_t size) {
        bool wake = false;
        {
            const std::scoped_lock lock(mutex_);
            buffer_.insert(buffer_.end(), bytes, bytes + size);
            wake = std::exchange(waiting_, false);
        }
        if (wake) {
            wakeUp_.notify_one();
        }
    }

private:
    void run() {
        std::unique_lock lock(mutex_);
        for (;;) {
            waiting_ = buffer_.empty() && !closed_;
            wakeUp_.wait(lock, [this] { return !waiting_; });
            if (buffer_.empty()) {
                return;
            }
            buffer_.swap(out_);
            lock.unlock();
            socket_.sendAll(out_.data(), out_.size());
            out_.clear();
            lock.lock();
        }
    }

    const Socket& socket_;
    std::mutex mutex_;
    std::condition_variable wakeUp_;
    std::vector<std::byte> buffer_; // guarded by mutex_, like the rest
    bool waiting_ = false;
    bool closed_ = false;
    std::vector<std::byte> out_; // the thread's
    std::thread thread_;
};

/// Receives whole transforms from a socket until its end.
template <class Take>
void receiveTransforms(const Socket& socket, Take&& take) {
    std::vector<std::byte> buffer(256U << 10U);
    std::size_t filled = 0;
    for (;;) {
        const std::size_t size = socket.receive(buffer.data() + filled, buffer.size() - filled);
        if (size == 0) {
            return;
        }
        filled += size;
        std::size_t used = 0;
        for (; filled - used >= kTransformBytes; used += kTransformBytes) {
            take(std::span<const std::byte>(buffer).subspan(used, kTransformBytes));
        }
        std::memmove(buffer.data(), buffer.data() + used, filled - used);
        filled -= used;
    }
}

// The library on loopback

/// A discovery port that no other process uses.
inline std::uint16_t groupPort() {
    static const std::uint16_t port =
        bindToFreePort(Socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)));
    return port;
}

/// Keeps all traffic on this machine, and suppresses messages about connections.
inline void prepareNetwork() {
    Corvid::Multicast::setDefaultInterfaces({Corvid::InetAddress::fromBits(INADDR_LOOPBACK)});
    Orvel::Log::the().setLevel(Orvel::Log::Level::Log);
    std::cout.setstate(std::ios::failbit);
}

inline void pinTo(int processor) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(processor, &set);
    pthread_setaffinity_np(pthread_self(), sizeof set, &set);
}

template <class Condition>
void waitUntil(Condition&& condition, const char* what) {
    const auto start = Clock::now();
    while (!condition()) {
        if (secondsSince(start) > 10.0) {
            fail(std::string("in ten seconds there was no ") + what);
        }
        std::this_thread::sleep_for(100us);
    }
}

/// A sound server that counts the transforms applied to its world.
class CountingServer : public Orvel::OwningWorld<Orvel::Server> {
public:
    CountingServer() { setMulticastPort(groupPort()); }
    void setEmitterTransform(Orvel::Emitter& emitter) override {
        World::setEmitterTransform(emitter);
        applied_.store(applied_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    }
    [[nodiscard]] long applied() const { return applied_.load(std::memory_order_relaxed); }

private:
    std::atomic<long> applied_ = 0;
};

/// A world with a client back end, and with emitters that move.
template <class BasicWorld = Orvel::World>
struct HostScene {
    explicit HostScene(int emitterCount) {
        const std::string params = "port=" + std::to_string(groupPort());
        client = dynamic_cast<Orvel::ClientBackend*>(world.addBackend("client", params.c_str()));
        if (client == nullptr) {
            fail("there is no back end \"client\"");
        }
        for (int i = 0; i < emitterCount; ++i) {
            emitters.push_back(world.createEmitter());
        }
    }
    HostScene(const HostScene&) = delete;
    HostScene& operator=(const HostScene&) = delete;
    ~HostScene() {
        world.deleteAllBackends();
        world.clearWorld();
    }

    /// Waits until this many servers have received the whole scene, which is sent on another
    /// thread.
    void waitForServers(std::size_t count) {
        std::size_t events = 2 + 2 * world.sources().size();
        for (const Orvel::Emitter* emitter : emitters) {
            events += emitter->state() == Orvel::WorldPart::NONE ? 5 : 6;
        }
        const auto all = [&] {
            const auto connections = client->multiClient().counters().connections;
            return connections.size() == count &&
                   std::all_of(connections.begin(), connections.end(), [&](const auto& one) {
                       return one.eventsOut >= events;
                   });
        };
        waitUntil(all, "connection with the servers");
    }
    [[nodiscard]] static Orvel::Vec3f position(unsigned pass) {
        return pass % 2 == 0 ? Orvel::Vec3f{1, 2, 3} : Orvel::Vec3f{-3, 2, -1};
    }
    void moveAll() {
        const Orvel::Vec3f to = position(++pass);
        for (Orvel::Emitter* emitter : emitters) {
            emitter->setTransform(&to, nullptr);
        }
    }

    BasicWorld world;
    Orvel::ClientBackend* client = nullptr;
    std::vector<Orvel::Emitter*> emitters;
    unsigned pass = 0;
};

} // namespace OrvelBench
