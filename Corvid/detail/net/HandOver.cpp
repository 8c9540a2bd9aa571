#include <Corvid/detail/net/HandOver.h>

#include <algorithm>
#include <cassert>
#include <utility>

namespace Corvid::detail {

namespace {

using State = Connection::State;

constexpr bool isQueued(State state) {
    return state == State::Waiting || state == State::Ready || state == State::Lost;
}

constexpr bool isLost(State state) {
    return state == State::Lost || state == State::LostOut || state == State::Over;
}

/// The table of Connection::State.
[[maybe_unused]] constexpr bool leadsTo(State from, State to) {
    switch (from) {
    case State::Greeting:
        return to == State::Waiting || to == State::Out || to == State::Gone;
    case State::Waiting:
        return to == State::Out || to == State::Gone;
    case State::Out:
        return to == State::Ready || to == State::Returned || to == State::LostOut ||
               to == State::Removed;
    case State::Returned:
        return to == State::Reading || to == State::Lost || to == State::Removed;
    case State::Reading:
        return to == State::Ready || to == State::Lost || to == State::Removed;
    case State::Ready:
        return to == State::Out || to == State::Lost || to == State::Removed;
    case State::Lost:
        return to == State::LostOut || to == State::Over || to == State::Gone;
    case State::LostOut:
        return to == State::Lost || to == State::Gone;
    case State::Over:
    case State::Removed:
        return to == State::Gone;
    case State::Gone:
        break;
    }
    return false;
}

} // namespace

/// Locks only if there are two threads.
class ORVEL_SCOPED_CAPABILITY HandOver::Guard {
public:
    explicit Guard(const HandOver& owner) ORVEL_ACQUIRE(owner.mutex_)
        : mutex_(owner.deferred_ ? &owner.mutex_ : nullptr) {
        lock();
    }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;
    ~Guard() ORVEL_RELEASE() { unlock(); }

private:
    // Without a second thread nothing is locked, which the analysis cannot know.
    void lock() ORVEL_NO_THREAD_SAFETY_ANALYSIS {
        if (mutex_ != nullptr) {
            mutex_->lock();
        }
    }
    void unlock() ORVEL_NO_THREAD_SAFETY_ANALYSIS {
        if (mutex_ != nullptr) {
            mutex_->unlock();
        }
    }

    Vessa::Mutex* mutex_;
};

/// The only function that changes a state. Maintains the lists: a connection is in the queue
/// exactly while it is queued; take() has removed it before. Returns the connection if no list
/// holds it.
HandOver::Pointer HandOver::enter(Pointer connection, State state) {
    const State before = std::exchange(connection->state_, state);
    assert(leadsTo(before, state));
    if (isQueued(before) && (state == State::Removed || state == State::Gone)) {
        std::erase(queue_, connection);
    }
    switch (state) {
    case State::Waiting:
    case State::Ready:
    case State::Lost:
        if (!isQueued(before)) {
            queue_.push_back(std::move(connection));
        }
        break;
    case State::Returned:
    case State::Removed:
        returned_.push_back(std::move(connection));
        break;
    case State::Greeting:
    case State::Reading:
    case State::Out:
    case State::LostOut:
    case State::Over:
    case State::Gone:
        break;
    }
    return connection;
}

// The loop thread's

State HandOver::state(const Connection& connection) const {
    const Guard guard(*this);
    return connection.state_;
}

void HandOver::wait(Pointer connection) {
    const Guard guard(*this);
    enter(std::move(connection), State::Waiting);
}

void HandOver::offer(Pointer connection) {
    const Guard guard(*this);
    if (connection->state_ == State::Reading) { // and not removed meanwhile
        enter(std::move(connection), State::Ready);
    }
}

bool HandOver::refuse(const Pointer& connection) {
    const Guard guard(*this);
    if (connection->state_ != State::Greeting && connection->state_ != State::Waiting) {
        return false;
    }
    enter(connection, State::Gone);
    return true;
}

bool HandOver::lose(const Pointer& connection, const std::function<void()>& record) {
    const Guard guard(*this);
    const State state = connection->state_;
    if (isLost(state) || state == State::Removed || state == State::Gone) {
        return false;
    }
    record();
    enter(connection, state == State::Out ? State::LostOut : State::Lost);
    return true;
}

std::vector<HandOver::Pointer> HandOver::takeReturned() {
    const Guard guard(*this);
    return std::exchange(returned_, {});
}

bool HandOver::read(const Pointer& connection) {
    const Guard guard(*this);
    if (connection->state_ != State::Returned) {
        return false;
    }
    enter(connection, State::Reading);
    return true;
}

bool HandOver::forget(const Pointer& connection) {
    const Guard guard(*this);
    if (connection->state_ != State::Removed) {
        return false;
    }
    enter(connection, State::Gone);
    return true;
}

// The host's

std::size_t HandOver::queued() const {
    const Guard guard(*this);
    return queue_.size();
}

Connection* HandOver::take() {
    const Guard guard(*this);
    if (queue_.empty()) {
        return nullptr;
    }
    Pointer connection = std::move(queue_.front()); // moved, because this happens for each frame
    queue_.pop_front();
    State state = State::Out;
    if (connection->state_ == State::Lost) {
        state = connection->next() == InputBuffer::Next::Frame ? State::LostOut : State::Over;
    }
    taken_ = enter(std::move(connection), state);
    taken_->turnEndFrames_ = taken_->eventsIn_.load(std::memory_order_relaxed) + kMaxTurnFrames;
    taken_->turnEndBytes_ = taken_->bytesIn_.load(std::memory_order_relaxed) + kMaxTurnBytes;
    return taken_.get();
}

Connection* HandOver::inTurn() const {
    const Guard guard(*this);
    Connection* connection = taken_.get();
    const bool goesOn =
        connection != nullptr && connection->state_ == State::Out && connection->isInTurn();
    return goesOn ? connection : nullptr;
}

void HandOver::giveBack(Pointer connection) {
    connection->turnEndFrames_ = 0;
    if (connection->state_ == State::LostOut) {
        enter(std::move(connection), State::Lost);
    } else if (connection->state_ == State::Out) {
        const bool more = connection->next() == InputBuffer::Next::Frame && !connection->isEnded();
        enter(std::move(connection), more ? State::Ready : State::Returned);
    }
}

int HandOver::finish() {
    const Guard guard(*this);
    if (!taken_) {
        return 0;
    }
    const std::uint64_t begin = taken_->turnEndFrames_ - kMaxTurnFrames;
    const auto frames = taken_->eventsIn_.load(std::memory_order_relaxed) - begin;
    giveBack(std::move(taken_));
    return static_cast<int>(frames);
}

HandOver::Pointer HandOver::taken() const {
    const Guard guard(*this);
    return taken_;
}

void HandOver::introduce(const Pointer& connection) {
    const Guard guard(*this);
    enter(connection, State::Out);
}

void HandOver::introduced(const Pointer& connection) {
    const Guard guard(*this);
    if (taken_ == connection) {
        taken_ = nullptr;
    }
    giveBack(connection);
}

void HandOver::remove(const Pointer& connection) {
    const Guard guard(*this);
    if (taken_ == connection) {
        taken_ = nullptr;
    }
    if (connection->state_ != State::Removed && connection->state_ != State::Gone) {
        enter(connection, isLost(connection->state_) ? State::Gone : State::Removed);
    }
}

void HandOver::clear() {
    const Guard guard(*this);
    queue_.clear();
    returned_.clear();
    taken_ = nullptr;
}

} // namespace Corvid::detail
