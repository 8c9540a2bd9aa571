#pragma once

#include <Corvid/MultiCommunicator.h>
#include <Corvid/detail/net/Connection.h>
#include <Corvid/detail/net/LineLimit.h>
#include <Corvid/detail/net/Loop.h>

#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>

#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace Corvid::detail {

/// The inside of a MultiCommunicator: all its connections and the loop that serves them. Threads
/// are as MultiCommunicator says.
class Hub {
public:
    /// What makes the connections. All calls come on the loop thread, stop() on the closing one.
    class Role {
    public:
        virtual ~Role() = default;
        /// At each turn of the loop: looks for changed settings.
        virtual void turn() = 0;
        /// Whether a peer that has shown who it is may stay.
        virtual bool accept(Connection& connection) = 0;
        /// A connection that was accepted has ended.
        virtual void lost(Connection& connection) = 0;
        virtual void stop() = 0;
        /// Synchronised.
        [[nodiscard]] virtual std::uint64_t datagramsIgnored() const = 0;
    };

    Hub(MultiCommunicator& owner, int protocolVersion);
    ~Hub();
    Hub(const Hub&) = delete;
    Hub& operator=(const Hub&) = delete;

    /// False if it is or was open.
    bool open(Role& role);
    [[nodiscard]] bool isOpen() const { return open_; }
    void close();
    void setDeferred(bool deferred) { deferred_ = deferred; }
    [[nodiscard]] bool isDeferred() const { return deferred_; }

    bool sendFrame(const std::byte* frame, std::size_t size);
    bool add(Communicator* communicator);
    bool remove(Communicator* communicator);
    /// When a wait is over; without it, when there is something.
    using End = std::optional<std::chrono::steady_clock::time_point>;
    bool wait(Communicator** communicator, End end = std::nullopt);
    bool available(int& count);
    bool watch(int descriptor);
    bool unwatch(int descriptor);
    void breakWait();
    /// Makes the loop turn soon. Synchronised.
    void nudge();
    int deliver(const std::function<void(Communicator*)>& receive);
    [[nodiscard]] MultiCommunicator::Counters counters() const;

    /// Takes a new socket; the greetings follow.
    void adopt(boost::asio::ip::tcp::socket socket, const std::string& target);
    /// Ends the registered connections of a peer that has come back on this new one, and discards
    /// what they have left unread. Not when deferred.
    void replaceBy(const Connection& newer);
    /// The same for connections registered before that of `since`, if their peers are gone.
    void discardLeftovers(const Communicator* since);

    /// Tells the host a line.
    void report(MultiCommunicator::Severity severity, const std::string& text) const {
        loop_->report(severity, text);
    }
    /// The same for what a stranger can cause as often as it likes.
    void reportRefusal(const std::string& text);
    void countRefusal() { ++refused_; }

    [[nodiscard]] const std::shared_ptr<Loop>& loop() const { return loop_; }
    [[nodiscard]] Greeting greeting() const;

    std::atomic<short> id = 0;
    std::atomic<std::uint16_t> features = 0; // of the greeting
    std::atomic<bool> noDelay = true;
    std::atomic<std::size_t> maxPerAddress = MultiCommunicator::kMaxConnections;

private:
    using Pointer = std::shared_ptr<Connection>;
    /// A descriptor of the host's.
    struct Watch {
        explicit Watch(boost::asio::io_context& io) : descriptor(io) {}
        Watch(const Watch&) = delete;
        Watch& operator=(const Watch&) = delete;
        ~Watch() { descriptor.release(); } // it is not ours to close

        boost::asio::posix::stream_descriptor descriptor;
        bool armed = false;
    };

    void armWatches();
    void reportVisit(const std::string& text);
    void reportLeftOut(bool final = false);
    void turn(bool block, End end = std::nullopt);
    void nap();
    void flush();
    void write(const Pointer& connection);
    void waitToRead(const Pointer& connection);
    void waitToWrite(const Pointer& connection);
    void readGreeting(const Pointer& connection);
    void read(const Pointer& connection);
    void greeted(const Pointer& connection);
    void introduce(const Pointer& connection);
    void refuse(const Pointer& connection, const std::string& reason);
    std::string makeRoom(const Pointer& newcomer);
    bool endIdle(const std::vector<Pointer>& connections);
    void lose(const Pointer& connection);
    void abandon(const Pointer& connection, const std::string& reason);
    void noteLoss(Connection& connection);
    void resumeAndForget();
    void finishCurrent();
    Connection* takeReady();
    bool forgetUngreeted(const Pointer& connection);
    void drain();
    [[nodiscard]] std::unique_lock<std::mutex> lockInput();

    MultiCommunicator& owner_;
    const std::uint16_t version_;
    const std::uint64_t instance_;
    const std::shared_ptr<Loop> loop_;
    Role* role_ = nullptr;
    std::atomic<bool> open_ = false;
    std::atomic<bool> break_ = false;
    bool opened_ = false;
    bool deferred_ = false; // not changed once open
    bool delivering_ = false;
    int served_ = 0; // since the system was last asked
    bool moreToWrite_ = false;
    bool napped_ = false; // a nap has just ended undisturbed
    boost::asio::steady_timer napTimer_;
    std::vector<std::shared_ptr<Watch>> watches_;
    bool watchFired_ = false;
    LineLimit refusalLines_{MultiCommunicator::kMaxRefusalLines};
    LineLimit visitLines_{MultiCommunicator::kMaxVisitLines};
    std::deque<Pointer> ungreeted_; // the oldest first
    std::vector<Pointer> active_;
    std::size_t inputBytes_ = 0; // memory of all input buffers

    // Handed between the loop thread and the host's; when they are the same there is no need to
    // lock, see lockInput(). The connections' notes about input are guarded in the same way.
    std::mutex inputMutex_;
    std::deque<Pointer> new_;
    std::deque<Pointer> ready_;
    std::vector<Pointer> resume_;
    std::vector<Pointer> removed_;
    Pointer current_;

    mutable std::mutex mutex_; // guards the rest
    std::vector<Pointer> registered_;
    MultiCommunicator::Counters totals_; // of the connections that are gone
    std::atomic<std::uint64_t> refused_ = 0;
};

} // namespace Corvid::detail
