#pragma once

#include <Corvid/detail/net/Connection.h>
#include <Vessa/Mutex.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <vector>

namespace Corvid::detail {

/// Passes connections between the loop thread, which reads them, and the host, which takes received
/// frames: the states of Connection::State and their lists. If both are one thread, nothing is
/// locked.
///
/// The host takes the connections in turn. A turn is several frames, because changing between
/// connections costs more than a small frame; it ends at a number of bytes too, so that peers with
/// large frames get no more than others.
class HandOver {
public:
    using Pointer = std::shared_ptr<Connection>;
    using State = Connection::State;

    /// The limits of a turn; the last frame may exceed that of bytes.
    static constexpr std::uint64_t kMaxTurnFrames = 64;
    static constexpr std::uint64_t kMaxTurnBytes = 4096;

    /// Whether the host takes connections on a thread of its own, in deliver(). Set it before the
    /// first connection.
    void setDeferred(bool deferred) { deferred_ = deferred; }
    [[nodiscard]] bool isDeferred() const { return deferred_; }

    // The loop thread's.

    [[nodiscard]] State state(const Connection& connection) const;
    /// Queues a connection that has greeted.
    void wait(Pointer connection);
    /// Queues a connection that has been read and holds a whole frame.
    void offer(Pointer connection);
    /// Forgets a connection that the host has not seen. Returns false if it has.
    bool refuse(const Pointer& connection);
    /// Queues a connection that has ended, after `record`, which must not block. Returns false,
    /// without effect, if it is lost already or the host has removed it.
    bool lose(const Pointer& connection, const std::function<void()>& record);
    /// Returns the connections that came back from the host, for read() or forget(). May contain
    /// duplicates.
    [[nodiscard]] std::vector<Pointer> takeReturned();
    /// Changes Returned to Reading; false if it was not returned.
    bool read(const Pointer& connection);
    /// Changes Removed to Gone; false if it was not removed.
    bool forget(const Pointer& connection);

    // The host's.

    /// Whether something is queued, and how many connections.
    [[nodiscard]] bool hasQueued() const { return queued() > 0; }
    [[nodiscard]] std::size_t queued() const;
    /// The taken connection if its turn goes on: the host may take another frame. Otherwise null.
    [[nodiscard]] Connection* inTurn() const;
    /// Takes the next connection of the queue; null if there is none. The host has it until
    /// finish().
    Connection* take();
    /// The host is done with the taken connection: it is queued again, or goes back to the loop
    /// thread. Returns the number of frames of its turn.
    int finish();
    /// The connection that the host has taken; null if none.
    [[nodiscard]] Pointer taken() const;
    /// Takes a connection that has greeted, bypassing the queue, and returns it afterwards.
    void introduce(const Pointer& connection);
    void introduced(const Pointer& connection);
    /// The host has removed a connection.
    void remove(const Pointer& connection);

    /// Forgets all.
    void clear();

private:
    class ORVEL_SCOPED_CAPABILITY Guard;

    Pointer enter(Pointer connection, State state) ORVEL_REQUIRES(mutex_);
    void giveBack(Pointer connection) ORVEL_REQUIRES(mutex_);

    bool deferred_ = false;
    mutable Vessa::Mutex mutex_; // guards the connections' states too
    std::deque<Pointer> queue_ ORVEL_GUARDED_BY(mutex_);
    std::vector<Pointer> returned_ ORVEL_GUARDED_BY(mutex_);
    Pointer taken_ ORVEL_GUARDED_BY(mutex_);
};

} // namespace Corvid::detail
