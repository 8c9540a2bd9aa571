#pragma once

#include <Corvid/detail/net/AppendLock.h>
#include <Corvid/detail/net/Backlog.h>
#include <Corvid/detail/net/ChunkQueue.h>
#include <Vessa/Mutex.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <sys/uio.h>
#include <utility>
#include <vector>

namespace Corvid::detail {

/// The outgoing data: one stream for all connections, and per connection its position in it and a
/// queue of its own. Any thread appends; one (the writer) takes from it and is only woken if it
/// sleeps. Appending to the stream never waits for the writer. A connection that lags can be
/// restricted to the newest values: the writer then moves its data into a backlog. Synchronised.
// The members of the two sides lie in cache lines of their own.
// NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding)
class OutgoingStream {
public:
    /// The part of one connection, guarded by the stream's mutex. Lives at least until leave().
    struct Outlet {
        /// Bytes of the connection's own, to be sent when the stream has reached `position`.
        struct Run {
            std::uint64_t position;
            std::uint64_t end; // in `own`
        };
        bool joined = false;
        bool leaving = false; // removed when the writer is done with it
        bool joining = false; // nothing of the stream is sent until the peer is up to date
        bool writing = false; // the writer reads its bytes outside the mutex
        bool overrun = false; // lags too far; stores nothing any more
        bool blocked = false; // the socket is full
        bool stuck = false;   // the socket was full at some time since everything was sent
        std::uint64_t position = 0;
        ChunkQueue own{1};
        std::deque<Run> runs;
        std::uint64_t replayEnd = 0;    // in `own`; data before it does not count as lag
        std::uint64_t framesBefore = 0; // frames of the stream when it joined
        std::uint64_t framesOwn = 0;
        std::uint64_t bytesOut = 0;
        // A position that the stream had reached at that time; replaced when it has been sent.
        std::uint64_t mark = 0;
        std::chrono::steady_clock::time_point markTime;
        Backlog backlog; // is sent first; the writer's, outside the mutex too
        Backlog::Counts backlogCounts;
    };
    /// The result of gather().
    struct Batch {
        std::size_t pieces = 0;
        std::size_t bytes = 0;
        bool overrun = false; ///< lags by more than the limit and gets nothing any more
        bool backlog = false; ///< lags and gets only the newest values
    };
    /// Statistics of an outlet.
    struct Counts {
        std::uint64_t frames = 0;
        std::uint64_t bytesOut = 0;
        std::uint64_t bytesWaiting = 0;
        std::uint64_t framesLeftOut = 0;
    };

    void setLagLimit(std::size_t bytes);
    /// Call it before open(): connections that lag get only the newest values. `classify` relates
    /// frames to each other; the writer calls it without the mutex.
    void setNewestOnly(Backlog::Classify classify) { classify_ = std::move(classify); }
    [[nodiscard]] bool newestOnly() const { return classify_ != nullptr; }

    /// Appends a frame for all joined outlets. Sets `wake` if the writer sleeps and must be woken.
    /// Returns false if closed.
    bool append(const std::byte* frame, std::size_t size, bool& wake) {
        return appendBy([=](ChunkQueue& stream) { return stream.append(frame, size); }, wake);
    }
    /// The same for a frame of known size, which `write` stores at the place that it is given.
    template <std::size_t size, class Write>
    [[gnu::always_inline]] bool append(const Write& write, bool& wake) {
        return appendBy([&write](ChunkQueue& stream) { return stream.append<size>(write); }, wake);
    }
    /// Appends a frame for one outlet. Returns false if it has left or lags too far, or is joining
    /// and `alsoJoining` is false.
    bool append(
        Outlet& outlet, const std::byte* frame, std::size_t size, bool& wake,
        bool alsoJoining = true);
    /// Marks the end of a batch of frames. Returns its size in bytes, or 0 if the writer is awake
    /// and will find it.
    std::size_t endBatch();
    /// Ends a rest. Returns true if the writer must be woken.
    bool endRest() { return resting_.exchange(false); }
    /// The number of batches that were not empty.
    [[nodiscard]] std::uint64_t batches() const { return batches_; }

    void open();
    void close();
    /// From now on the outlet gets appended frames; those of the stream only after ready().
    void join(Outlet& outlet);
    /// Returns true if the writer must be woken.
    bool ready(Outlet& outlet);
    void leave(Outlet& outlet);

    // The writer's. A thread that finds it resting may write in its place.

    Vessa::Mutex writing; ///< held while writing; locked before all others
    /// Moves an outlet's queued data into its backlog if it lags too much to get every value.
    void moveLag(Outlet& outlet);
    /// Lists the next data of an outlet, which the caller may read until advance().
    Batch gather(Outlet& outlet, iovec* pieces, std::size_t most);
    /// Reports the number of bytes written and whether the socket is full.
    void advance(Outlet& outlet, std::size_t bytes, bool blocked);
    void unblock(Outlet& outlet);
    void trim();
    /// Whether there is work since the last call.
    bool takeWork();
    /// Makes takeWork() return true. Returns true if the writer must be woken.
    bool addWork();
    /// Call it before sleeping. Returns false if there is work after all.
    bool beginSleep();
    /// The same for a short sleep that frames of an unfinished batch do not end.
    bool beginRest();
    void endSleep();

    [[nodiscard]] Counts counts(const Outlet& outlet) const;
    [[nodiscard]] bool isDrained(const Outlet& outlet) const;
    [[nodiscard]] std::size_t bytesKept() const;

private:
    static constexpr std::size_t kSpareChunks = 64;
    // A connection that lags by more than one of these gets only the newest values.
    static constexpr std::size_t kLateBytes = std::size_t{256} << 10U;
    static constexpr std::chrono::milliseconds kLateTime{250};

    // The two sides of the stream.
    ChunkQueue& tail() ORVEL_REQUIRES(appendLock_) { return stream_; }
    ChunkQueue& head() ORVEL_REQUIRES(mutex_) { return stream_; }

    template <class Append>
    [[gnu::always_inline]] bool appendBy(const Append& append, bool& wake) {
        bool newChunk = false;
        {
            const AppendLock::Holder lock(appendLock_);
            if (!open_) {
                return false;
            }
            frames_.store(frames_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
            if (!joined_) {
                return true;
            }
            newChunk = append(tail());
        }
        Vessa::Fence::light(); // against that of beginSleep()
        wake = sleeping_.load(std::memory_order_relaxed) && sleeping_.exchange(false);
        if (newChunk) {
            wake = boundMemory() || wake;
        }
        return true;
    }
    bool boundMemory();
    void checkLag() ORVEL_REQUIRES(mutex_);
    bool isLate(Outlet& outlet) ORVEL_REQUIRES(mutex_);
    std::uint64_t listPending(Outlet& outlet, std::uint64_t end) ORVEL_REQUIRES(mutex_);
    void trimLocked() ORVEL_REQUIRES(mutex_);
    void leaveLocked(Outlet& outlet) ORVEL_REQUIRES(mutex_);
    [[nodiscard]] std::uint64_t lagOf(const Outlet& outlet) const ORVEL_REQUIRES(mutex_);

    Backlog::Classify classify_; // constant once open
    std::vector<iovec> pending_; // the writer's
    std::uint64_t taken_ = 0;    // the writer's: the end of the stream at the last takeWork()

    // The threads that append wait only for each other: the writer takes this lock when a
    // connection comes or goes, and never to send. Locked after mutex_.
    alignas(64) AppendLock appendLock_;
    bool open_ ORVEL_GUARDED_BY(appendLock_) = false;
    bool joined_ ORVEL_GUARDED_BY(appendLock_) = false; // there is an outlet
    std::atomic<std::uint64_t> frames_ = 0;             // written under appendLock_
    ChunkQueue stream_{kSpareChunks};                   // see tail() and head()

    alignas(64) mutable Vessa::Mutex mutex_; // guards the outlets, as far as not the writer's
    std::vector<Outlet*> outlets_ ORVEL_GUARDED_BY(mutex_);
    std::size_t lagLimit_ ORVEL_GUARDED_BY(mutex_) = 0;

    std::atomic<bool> work_ = false; // besides frames in the stream
    std::atomic<bool> sleeping_ = false;
    std::atomic<bool> resting_ = false;
    std::atomic<std::uint64_t> batchEnd_ = 0; // position
    std::atomic<std::uint64_t> batches_ = 0;
};

} // namespace Corvid::detail
