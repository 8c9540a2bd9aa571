#pragma once

#include "Ratio.h"

#include <arpa/inet.h>
#include <array>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <map>
#include <memory>
#include <mutex>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <pthread.h>
#include <sched.h>
#include <string>
#include <sys/socket.h>
#include <sys/time.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

// The work of a client and a server without any part of the library: plain sockets, plain copies, a
// map of plain structs. The network programs compare the library with it.
namespace OrvelBench {

using namespace std::chrono_literals;

// The workload

constexpr int kEmitters = 1000;
constexpr std::size_t kTransformBytes = 49;

/// The index of the emitter that changes at this place of a pass: each of them once, in an order
/// that neither a tree nor a processor's prefetching can use.
constexpr std::size_t permuted(std::size_t place, std::size_t count) {
    return place * 617 % count; // a prime
}

struct Transform {
    std::int16_t id = 0;
    std::array<float, 7> values{};
};

/// The change with this number; no two of an emitter are equal.
inline Transform transformOf(std::uint32_t number) {
    Transform transform;
    transform.id = static_cast<std::int16_t>(1 + permuted(number, kEmitters));
    for (std::size_t i = 0; i < transform.values.size(); ++i) {
        transform.values[i] =
            static_cast<float>(number % (1U << 20U)) + 0.25F * static_cast<float>(i);
    }
    return transform;
}

/// Writes kTransformBytes: a length, a number, and then each field after a byte for its type.
inline void encode(std::byte* to, const Transform& transform) {
    const auto put = [&to](auto value) {
        std::memcpy(to, &value, sizeof value);
        to += sizeof value;
    };
    put(std::uint32_t{kTransformBytes - 4});
    put(std::uint32_t{0});
    put('h');
    put(std::int16_t{7});
    put('h');
    put(transform.id);
    for (const float value : transform.values) {
        put('f');
        put(value);
    }
}

/// A scene of structs.
class PlainScene {
public:
    PlainScene() {
        for (int id = 1; id <= kEmitters; ++id) {
            emitters_[id] = std::make_unique<std::array<float, 7>>();
        }
    }
    /// Decodes and applies one event, with a check of each type.
    void apply(const std::byte* from) {
        Transform transform;
        std::int16_t command = 0;
        bool good = true;
        from += 8;
        const auto get = [&from, &good](char type, auto& value) {
            good = good && *from == static_cast<std::byte>(type);
            std::memcpy(&value, from + 1, sizeof value);
            from += 1 + sizeof value;
        };
        get('h', command);
        get('h', transform.id);
        for (float& value : transform.values) {
            get('f', value);
        }
        const auto emitter = emitters_.find(transform.id);
        if (!good || command != 7 || emitter == emitters_.end()) {
            fail("raw TCP brought something else");
        }
        *emitter->second = transform.values;
    }

private:
    std::map<int, std::unique_ptr<std::array<float, 7>>> emitters_;
};

// Sockets on loopback

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

/// The obvious non-blocking sender: frames are appended to a buffer under a mutex, and a thread
/// sends it to all, when it has grown to 64 KiB, a millisecond after the first frame, or at
/// flush(). The thread is only notified if it waits; an append waits if 4 MiB are queued.
class BufferedWriter {
public:
    explicit BufferedWriter(std::vector<const Socket*> sockets) : sockets_(std::move(sockets)) {
        buffer_.reserve(kMaxBytes);
        out_.reserve(kMaxBytes);
        thread_ = std::thread([this] { run(); });
    }
    explicit BufferedWriter(const Socket& socket) : BufferedWriter(std::vector{&socket}) {}
    BufferedWriter(const BufferedWriter&) = delete;
    BufferedWriter& operator=(const BufferedWriter&) = delete;
    ~BufferedWriter() {
        {
            const std::scoped_lock lock(mutex_);
            closed_ = true;
        }
        wakeUp_.notify_one();
        thread_.join();
    }

    /// `write` gets the place of the frame.
    template <class Write>
    void append(std::size_t size, Write&& write) {
        bool wake = false;
        {
            std::unique_lock lock(mutex_);
            space_.wait(lock, [&] { return buffer_.size() + size <= kMaxBytes; });
            const std::size_t at = buffer_.size();
            buffer_.resize(at + size);
            write(buffer_.data() + at);
            wake = waitsForFirst_ || (waitsForMore_ && at + size >= kBatchBytes);
            if (wake) {
                waitsForFirst_ = waitsForMore_ = false;
            }
        }
        if (wake) {
            wakeUp_.notify_one();
        }
    }
    void append(const Transform& transform) {
        append(kTransformBytes, [&](std::byte* to) { encode(to, transform); });
    }
    void append(const std::byte* bytes, std::size_t size) {
        append(size, [&](std::byte* to) { std::memcpy(to, bytes, size); });
    }
    /// Sends what is there at once.
    void flush() {
        {
            const std::scoped_lock lock(mutex_);
            flushing_ = !buffer_.empty();
        }
        wakeUp_.notify_one();
    }

private:
    static constexpr std::size_t kBatchBytes = std::size_t{64} << 10U;
    static constexpr std::size_t kMaxBytes = std::size_t{4} << 20U;

    void run() {
        std::unique_lock lock(mutex_);
        for (;;) {
            waitsForFirst_ = true;
            wakeUp_.wait(lock, [this] { return !buffer_.empty() || closed_; });
            waitsForFirst_ = false;
            waitsForMore_ = true;
            wakeUp_.wait_for(lock, 1ms, [this] {
                return buffer_.size() >= kBatchBytes || flushing_ || closed_;
            });
            waitsForMore_ = flushing_ = false;
            if (buffer_.empty()) {
                return;
            }
            buffer_.swap(out_);
            space_.notify_one();
            lock.unlock();
            for (const Socket* socket : sockets_) {
                socket->sendAll(out_.data(), out_.size());
            }
            out_.clear();
            lock.lock();
        }
    }

    const std::vector<const Socket*> sockets_;
    std::mutex mutex_;
    std::condition_variable wakeUp_, space_;
    std::vector<std::byte> buffer_; // guarded by mutex_, like the flags
    bool waitsForFirst_ = false;
    bool waitsForMore_ = false;
    bool flushing_ = false;
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
        for (std::uint32_t length = 0; filled - used >= sizeof length; used += 4 + length) {
            std::memcpy(&length, buffer.data() + used, sizeof length);
            if (length != kTransformBytes - 4) {
                fail("raw TCP brought something else");
            }
            if (filled - used < 4 + length) {
                break;
            }
            take(buffer.data() + used);
        }
        std::memmove(buffer.data(), buffer.data() + used, filled - used);
        filled -= used;
    }
}

// Threads

inline void pinTo(int processor) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(processor, &set);
    pthread_setaffinity_np(pthread_self(), sizeof set, &set);
}

/// The processor time of a thread, in seconds.
inline double processorTime(pthread_t thread) {
    clockid_t clock{};
    timespec time{};
    if (::pthread_getcpuclockid(thread, &clock) != 0 || ::clock_gettime(clock, &time) != 0) {
        fail("a thread has no clock");
    }
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
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

} // namespace OrvelBench
