#pragma once

#include <Corvid/Loop.h>
#include <Corvid/MultiCommunicator.h>
#include <Corvid/detail/net/Connection.h>
#include <Corvid/detail/net/ConnectionContext.h>
#include <Corvid/detail/net/HandOver.h>
#include <Corvid/detail/net/Keyring.h>
#include <Corvid/detail/net/LineLimit.h>
#include <Vessa/Mutex.h>

#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Corvid::detail {

/// The implementation of a MultiCommunicator: all its connections. A client of its loop; see
/// MultiCommunicator for threads.
class Hub : private Loop::Client {
public:
    using Clock = Loop::Clock;

    /// Makes the connections: a client or a server. All calls come on the loop thread, stop() on
    /// the closing one.
    class Role {
    public:
        virtual ~Role() = default;
        /// Called before the loop first runs.
        virtual void setKeys(const std::shared_ptr<Keyring>& ring) = 0;
        /// Does due work, including changed settings. Returns when to call it again.
        virtual Clock::time_point serve(Clock::time_point now) = 0;
        /// Whether to keep a peer that has greeted.
        virtual bool accept(Connection& connection) = 0;
        /// A connection that was accepted has ended.
        virtual void lost(Connection& connection) = 0;
        virtual void stop() = 0;
        /// Synchronised.
        [[nodiscard]] virtual std::uint64_t datagramsIgnored() const = 0;
    };

    Hub(MultiCommunicator& owner, int protocolVersion);
    ~Hub() override;
    Hub(const Hub&) = delete;
    Hub& operator=(const Hub&) = delete;

    /// Returns false if it is or was open.
    bool open(Role& role);
    void close();
    void setDeferred(bool deferred) { handOver_.setDeferred(deferred); }
    /// Seals all connections. Call it before the loop first runs. Returns false, with a diagnostic,
    /// if the file gives no keys yet; nobody can connect until it does.
    bool setKeys(const std::string& path);
    /// Null for open connections.
    [[nodiscard]] const std::shared_ptr<Keyring>& keyring() const { return keyring_; }

    bool sendFrame(const std::byte* frame, std::size_t size);
    /// The same for a valid frame of known size, which `write` stores at the place that it is
    /// given. Inline, as the host does this for each change.
    template <std::size_t size, class Write>
    [[gnu::always_inline]] bool sendFixed(const Write& write) {
        bool wake = false;
        const bool taken = context_->stream.append<size>(write, wake);
        if (wake) {
            loop()->wake();
        }
        return taken;
    }
    /// `alsoJoining`: to connections too that are being brought up to date.
    void sendFrameTo(
        std::uint16_t features, const std::byte* frame, std::size_t size, bool alsoJoining = true)
        ORVEL_EXCLUDES(mutex_);
    void endBatch();
    bool add(Communicator* communicator) ORVEL_EXCLUDES(mutex_);
    bool remove(Communicator* communicator) ORVEL_EXCLUDES(mutex_);
    /// Waits for a connection with data, or until a time. With null it does not take it, and also
    /// returns when another client of the loop has something for its host.
    bool wait(Communicator** communicator, Clock::time_point until = Clock::time_point::max());
    bool available(int& count);
    [[nodiscard]] Communicator* inTurn() const {
        const Connection* connection = handOver_.inTurn();
        return connection == nullptr ? nullptr : connection->communicator;
    }
    void breakWait();
    int deliver(const std::function<void(Communicator*)>& receive);
    [[nodiscard]] MultiCommunicator::Counters counters() const ORVEL_EXCLUDES(mutex_);

    /// Adds a new socket; the greetings follow.
    void adopt(Socket socket, const std::string& target);
    /// Closes the registered connections of a peer that has reconnected, and discards their unread
    /// events. Not in deferred mode.
    void replaceBy(const Connection& newer);
    /// The same for connections registered before `since`, if their peers are gone.
    void discardLeftovers(const Communicator* since);

    /// Passes a line to the host.
    void report(MultiCommunicator::Severity severity, const std::string& text) const {
        context_->report(severity, text);
    }
    /// The same for lines that strangers can cause at any rate.
    void reportRefusal(const std::string& text);
    /// The same, each line once for each peer until the keys change.
    void reportRefusalOnce(const std::string& peer, const std::string& text);
    void countRefusal() { ++refused_; }

    [[nodiscard]] const std::shared_ptr<ConnectionContext>& context() const { return context_; }
    [[nodiscard]] const std::shared_ptr<Loop>& loop() const { return context_->loop; }
    [[nodiscard]] Greeting greeting() const;

    std::atomic<short> id = 0;
    std::atomic<std::uint16_t> features = 0; // of the greeting
    std::atomic<bool> noDelay = true;
    std::atomic<std::size_t> maxPerAddress = MultiCommunicator::kMaxConnections;

private:
    using Pointer = HandOver::Pointer;

    Clock::time_point prepare(Clock::time_point now, bool waits) override;
    void resume() override;
    Clock::time_point refuseTheLate(Clock::time_point now);
    Clock::time_point takeKeys(Clock::time_point now);
    bool takeChange(const Keyring::Change& change);
    [[nodiscard]] std::string nameForRefusal(const Connection& connection) const;
    void ready(const Pointer& connection, const Loop::Watch::Ready& ready);
    bool flush();
    Connection::Status write(const Pointer& connection);
    void readGreeting(const Pointer& connection);
    void read(const Pointer& connection);
    [[nodiscard]] bool isInputFull() const;
    void introduce(const Pointer& connection);
    void refuse(const Pointer& connection, const std::string& reason);
    std::string makeRoom(const Pointer& newcomer);
    bool endIdle(const std::vector<Pointer>& connections);
    void lose(const Pointer& connection);
    void record(const Connection& connection) ORVEL_EXCLUDES(mutex_);
    void announceLoss(const Pointer& connection);
    void abandon(const Pointer& connection, const std::string& reason);
    void takeReturned();
    void drain();
    [[nodiscard]] std::vector<Pointer> registered() const ORVEL_EXCLUDES(mutex_);
    void reportVisit(const std::string& text);
    void reportLeftOut(bool final = false);
    void servedChanged() ORVEL_EXCLUDES(onlyMutex_);

    MultiCommunicator& owner_;
    const std::uint16_t version_;
    const std::uint64_t instance_;
    const std::shared_ptr<ConnectionContext> context_;
    Role* role_ = nullptr; // once open
    std::atomic<bool> open_ = false;
    std::atomic<bool> break_ = false;
    HandOver handOver_;

    // The loop thread's.
    std::shared_ptr<Keyring> keyring_;
    std::set<std::string> reportedOnce_;
    std::deque<Pointer> ungreeted_; // oldest first
    std::vector<Pointer> served_;   // have greeted and are not lost
    int taken_ = 0;                 // by the host since the last poll of the sockets
    int handshakes_ = 0;            // since the last poll of the sockets
    std::uint64_t wakeUps_ = 0;     // of the loop, when last seen
    std::optional<Clock::time_point> napEnd_;
    std::uint64_t batches_ = 0; // of the host, when last seen
    Clock::time_point batchesEnd_;

    // The host's.
    bool delivering_ = false;

    Vessa::Mutex onlyMutex_;
    Pointer only_ ORVEL_GUARDED_BY(onlyMutex_); // of served_, if that is one

    LineLimit refusalLines_{MultiCommunicator::kMaxRefusalLines};
    LineLimit visitLines_{MultiCommunicator::kMaxVisitLines};
    std::atomic<std::uint64_t> refused_ = 0;
    mutable Vessa::Mutex mutex_;
    std::vector<Pointer> registered_ ORVEL_GUARDED_BY(mutex_);
    // Of closed connections.
    MultiCommunicator::Counters totals_ ORVEL_GUARDED_BY(mutex_);
};

} // namespace Corvid::detail
