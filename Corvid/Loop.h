#pragma once

#include <Corvid/Socket.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include <orvel_export.h>

namespace Corvid {

/// The only place where a program waits: for sockets, timers, and wake-ups by other threads.
/// Events, web pages and Open Sound Control are its clients. Each of them creates its own loop
/// unless it is given a shared one; all that share it keep it alive.
///
/// It has no thread. The loop thread is the one inside run(), wait() or poll(), one at a time, and
/// everything except wake() and breakWait() belongs to it.
class ORVEL_EXPORT Loop {
public:
    using Clock = std::chrono::steady_clock;

    /// The result of prepare() if its host has something to take.
    static constexpr Clock::time_point kNow = Clock::time_point::min();

    /// An object with sockets or deadlines served by a loop.
    class ORVEL_EXPORT Client {
    public:
        virtual ~Client() = default;
        /// Does due work that does not need the host. Returns kNow, or the latest time of the next
        /// call. `waits`: whether the loop waits afterwards, if all clients agree.
        virtual Clock::time_point prepare(Clock::time_point now, bool waits) = 0;
        /// The wait is over. Called before any readiness is reported.
        virtual void resume() {}
    };

    /// Watches one descriptor, which must stay open meanwhile. Level-triggered: reports repeatedly
    /// until the descriptor is not ready or not wanted any more.
    class ORVEL_EXPORT Watch {
    public:
        /// Readiness of a descriptor.
        struct Ready {
            bool toRead;
            bool toWrite;
            bool broken; ///< nothing can be sent any more
        };
        /// Called on the loop thread. May destroy the watch.
        using Handler = std::function<void(const Ready&)>;

        /// Watches nothing.
        Watch() = default;
        /// Reports nothing until want().
        Watch(std::shared_ptr<Loop> loop, const Socket& socket, Handler handler);
        /// Watches a descriptor of the host.
        Watch(std::shared_ptr<Loop> loop, int descriptor, Handler handler);
        Watch(Watch&& other) noexcept = default;
        Watch& operator=(Watch&& other) noexcept;
        ~Watch();

        explicit operator bool() const { return item_ != nullptr; }
        /// Selects the events to report; none by default. Returns false if the system refuses:
        /// another watch of this loop has the descriptor, or it cannot be waited for.
        bool want(bool toRead, bool toWrite);
        bool wantRead(bool wanted);
        bool wantWrite(bool wanted);

    private:
        friend class Loop;
        struct Item {
            int descriptor;
            Handler handler;
            std::uint32_t wanted = 0;
            bool dead = false;
        };
        void drop();

        std::shared_ptr<Loop> loop_;
        std::unique_ptr<Item> item_;
    };

    /// Throws std::system_error if the process has no descriptor left.
    Loop();
    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;
    ~Loop();

    /// A client must remove itself before it is destroyed.
    void add(Client& client);
    void remove(Client& client);

    /// Waits until a client has something for its host. Returns false at `until` or after
    /// breakWait().
    bool wait(Clock::time_point until);
    /// One iteration: prepares the clients, waits until something happens, at most until the given
    /// time, and reports ready descriptors. Returns true if a client has something for its host.
    bool run(Clock::time_point until);
    /// Reports ready descriptors without preparing the clients; waits for them at most until the
    /// given time.
    void poll(Clock::time_point until = kNow) { dispatch(until); }

    /// Ends the wait inside run(), or the next. Synchronised.
    void wake();
    /// Ends wait(), or the next. Synchronised.
    void breakWait();
    /// Number of calls of wake(), where consecutive ones count once.
    [[nodiscard]] std::uint64_t wakeUps() const { return wakeUps_; }

    /// For a program with a loop of its own: readable when run() has work. Owned by the loop.
    [[nodiscard]] int descriptor() const { return poller_; }
    /// When to call run() even if descriptor() is not readable; now or earlier means at once. Ask
    /// before each wait.
    [[nodiscard]] Clock::time_point next();

private:
    Clock::time_point prepare(Clock::time_point now, bool waits, bool& ready);
    void dispatch(Clock::time_point until);

    int poller_ = -1;
    int event_ = -1;
    std::vector<Client*> clients_;
    std::atomic<bool> break_ = false;
    std::uint64_t wakeUps_ = 0;
    int depth_ = 0;                                  // of dispatch()
    std::vector<std::unique_ptr<Watch::Item>> dead_; // may still be in a list of events
};

} // namespace Corvid
