#include <Corvid/Loop.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace Corvid {

namespace {

constexpr int kMaxEvents = 64; // per call; the kernel continues with the others
constexpr std::chrono::hours kLongestWait{24};

int waitForEvents(int poller, epoll_event* events, Loop::Clock::time_point until) {
    using namespace std::chrono;
    if (until == Loop::Clock::time_point::max()) {
        return ::epoll_wait(poller, events, kMaxEvents, -1);
    }
    // Most calls do not need the clock.
    const auto left =
        until == Loop::kNow
            ? nanoseconds(0)
            : std::clamp<nanoseconds>(until - Loop::Clock::now(), nanoseconds(0), kLongestWait);
    if (left == left.zero()) {
        return ::epoll_wait(poller, events, kMaxEvents, 0);
    }
    const auto whole = duration_cast<seconds>(left);
    const timespec time = {whole.count(), (left - whole).count()};
    const int count = ::epoll_pwait2(poller, events, kMaxEvents, &time, nullptr);
    if (count >= 0 || errno != ENOSYS) { // before Linux 5.11
        return count;
    }
    return ::epoll_wait(
        poller, events, kMaxEvents, static_cast<int>(ceil<milliseconds>(left).count()));
}

} // namespace

// The watch

Loop::Watch::Watch(std::shared_ptr<Loop> loop, const Socket& socket, Handler handler)
    : Watch(std::move(loop), socket.descriptor_, std::move(handler)) {}

Loop::Watch::Watch(std::shared_ptr<Loop> loop, int descriptor, Handler handler)
    : loop_(std::move(loop)), item_(std::make_unique<Item>(Item{descriptor, std::move(handler)})) {}

Loop::Watch& Loop::Watch::operator=(Watch&& other) noexcept {
    if (this != &other) {
        drop();
        loop_ = std::move(other.loop_);
        item_ = std::move(other.item_);
    }
    return *this;
}

Loop::Watch::~Watch() {
    drop();
}

void Loop::Watch::drop() {
    if (item_ == nullptr) {
        return;
    }
    want(false, false);
    item_->dead = true;
    if (loop_->depth_ > 0) { // its handler may be running
        loop_->dead_.push_back(std::move(item_));
    }
    item_ = nullptr;
}

bool Loop::Watch::want(bool toRead, bool toWrite) {
    const std::uint32_t wanted = (toRead ? EPOLLIN : 0U) | (toWrite ? EPOLLOUT : 0U);
    const std::uint32_t before = item_->wanted;
    if (wanted == before) {
        return true;
    }
    epoll_event event = {};
    event.events = wanted;
    event.data.ptr = item_.get();
    // epoll reports a broken socket even if nothing is wanted, so such a socket is removed from the
    // set.
    const int operation = before == 0 ? EPOLL_CTL_ADD : wanted == 0 ? EPOLL_CTL_DEL : EPOLL_CTL_MOD;
    if (::epoll_ctl(loop_->poller_, operation, item_->descriptor, &event) != 0) {
        return false;
    }
    item_->wanted = wanted;
    return true;
}

bool Loop::Watch::wantRead(bool wanted) {
    return want(wanted, (item_->wanted & EPOLLOUT) != 0);
}

bool Loop::Watch::wantWrite(bool wanted) {
    return want((item_->wanted & EPOLLIN) != 0, wanted);
}

// The loop

Loop::Loop()
    : poller_(::epoll_create1(EPOLL_CLOEXEC)), event_(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
    epoll_event event = {};
    event.events = EPOLLIN;
    if (poller_ < 0 || event_ < 0 || ::epoll_ctl(poller_, EPOLL_CTL_ADD, event_, &event) != 0) {
        const int reason = errno;
        ::close(event_);
        ::close(poller_);
        throw std::system_error(reason, std::generic_category(), "a loop that waits for sockets");
    }
}

Loop::~Loop() {
    ::close(event_);
    ::close(poller_);
}

void Loop::add(Client& client) {
    clients_.push_back(&client);
}

void Loop::remove(Client& client) {
    std::erase(clients_, &client);
}

Loop::Clock::time_point Loop::prepare(Clock::time_point now, bool waits, bool& ready) {
    Clock::time_point next = Clock::time_point::max();
    for (std::size_t i = 0; i < clients_.size(); ++i) { // one may add or remove another
        const auto due = clients_[i]->prepare(now, waits);
        ready = ready || due == kNow;
        next = std::min(next, due);
    }
    return next;
}

bool Loop::run(Clock::time_point until) {
    bool ready = false;
    const auto now = Clock::now();
    const auto next = std::min(until, prepare(now, until > now, ready));
    dispatch(next <= now ? kNow : next);
    return ready;
}

bool Loop::wait(Clock::time_point until) {
    while (!break_.exchange(false)) {
        if (run(until)) {
            return true;
        }
        if (Clock::now() >= until) {
            return false;
        }
    }
    return false;
}

Loop::Clock::time_point Loop::next() {
    bool ready = false;
    return prepare(Clock::now(), true, ready);
}

void Loop::dispatch(Clock::time_point until) {
    std::array<epoll_event, kMaxEvents> events; // written by the kernel as far as it is read
    const int count = waitForEvents(poller_, events.data(), until);
    for (std::size_t i = 0; i < clients_.size(); ++i) {
        clients_[i]->resume();
    }
    const std::unique_ptr<Loop, void (*)(Loop*)> depth(
        (++depth_, this), [](Loop* loop) { // also if a handler throws
            if (--loop->depth_ == 0) {
                loop->dead_.clear();
            }
        });
    for (int i = 0; i < count; ++i) {
        const epoll_event& event = events[static_cast<std::size_t>(i)];
        auto* item = static_cast<Watch::Item*>(event.data.ptr);
        if (item == nullptr) {
            std::uint64_t calls = 0;
            [[maybe_unused]] const auto size = ::read(event_, &calls, sizeof calls);
            ++wakeUps_;
            continue;
        }
        const bool broken = (event.events & (EPOLLERR | EPOLLHUP)) != 0;
        const Watch::Ready ready = {
            (item->wanted & EPOLLIN) != 0 && (broken || (event.events & EPOLLIN) != 0),
            (item->wanted & EPOLLOUT) != 0 && (broken || (event.events & EPOLLOUT) != 0), broken};
        if (!item->dead && (ready.toRead || ready.toWrite)) {
            item->handler(ready);
        }
    }
}

void Loop::wake() {
    const std::uint64_t one = 1;
    // It fails only if so many wake-ups are pending that another makes no difference.
    [[maybe_unused]] const auto size = ::write(event_, &one, sizeof one);
}

void Loop::breakWait() {
    break_ = true;
    wake();
}

} // namespace Corvid
