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

/// The one thing that a program waits on: readiness of sockets, times, and wake-ups by other
/// threads. Events, web pages and Open Sound Control are its clients. Each of them makes a loop of
/// its own unless it is given one to share; all that share it keep it alive.
///
/// It has no thread. The loop thread is the one inside run(), wait() or poll(), one at a time, and
/// everything but wake() and breakWait() belongs to it.
class ORVEL_EXPORT Loop {
public:
    using Clock = std::chrono::steady_clock;

    /// What prepare() returns if its host has something to take.
    static constexpr Clock::time_point kNow = Clock::time_point::min();

    /// Has sockets or deadlines that a loop serves.
    class ORVEL_EXPORT Client {
    public:
        virtual ~Client() = default;
        /// Does what is due and needs no host. Returns kNow, or when to call it again at the
        /// latest. `waits`: whether the loop waits after this if all clients let it.
        virtual Clock::time_point prepare(Clock::time_point now, bool waits) = 0;
        /// The wait is over. Called before any readiness is reported.
        virtual void resume() {}
    };

    /// The readiness of one descriptor, which must stay open while this lives. It reports again and
    /// again until what made the descriptor ready was taken, or is not wanted any more.
    class ORVEL_EXPORT Watch {
    public:
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
        /// Watches a descriptor of the host's.
        Watch(std::shared_ptr<Loop> loop, int descriptor, Handler handler);
        Watch(Watch&& other) noexcept = default;
        Watch& operator=(Watch&& other) noexcept;
        ~Watch();

        explicit operator bool() const { return item_ != nullptr; }
        /// What to report; one that wants neither reports nothing. False if the system refuses:
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

    /// Throws std::system_error when the process has no descriptor left.
    Loop();
    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;
    ~Loop();

    /// A client removes itself before it is destroyed.
    void add(Client& client);
    void remove(Client& client);

    /// Waits until a client has something for its host, or a time has come. False after that time
    /// or breakWait().
    bool wait(Clock::time_point until);
    /// One pass: prepares the clients, waits at most until that time or something happens, and
    /// reports what is ready. True if a client had something for its host.
    bool run(Clock::time_point until);
    /// Reports what is ready without preparing the clients, and waits for it at most until then.
    void poll(Clock::time_point until = kNow) { dispatch(until); }

    /// Ends the wait inside run(), or the next. Synchronised.
    void wake();
    /// Ends wait(), or the next. Synchronised.
    void breakWait();
    /// Counts calls of wake(), those in a row as one.
    [[nodiscard]] std::uint64_t wakeUps() const { return wakeUps_; }

    /// For a program that waits in a loop of its own: readable when run() has something to do. The
    /// loop keeps it.
    [[nodiscard]] int descriptor() const { return poller_; }
    /// When to call run() although descriptor() is not readable; at or before now if at once. To be
    /// asked before each wait.
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
    std::vector<std::unique_ptr<Watch::Item>> dead_; // may be in a list of events still
};

} // namespace Corvid
