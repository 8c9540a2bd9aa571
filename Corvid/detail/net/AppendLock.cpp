#include <Corvid/detail/net/AppendLock.h>

#include <chrono>

using namespace std::chrono_literals;

namespace Corvid::detail {

void AppendLock::Holder::enter() {
    lock_.mutex_.lock();
    Slot* const owner = lock_.owner_.load(std::memory_order_relaxed);
    lock_.paused_ = owner;
    if (owner == nullptr || owner->thread == thisThread()) {
        return;
    }
    // Either the owner sees that it is none any more, or this thread sees that it is inside.
    lock_.owner_.store(nullptr, std::memory_order_relaxed);
    Vessa::Fence::heavy();
    while (owner->inside.load(std::memory_order_acquire)) {
        std::this_thread::sleep_for(20us); // a yield need not let an owner of lower priority go on
    }
}

void AppendLock::Holder::leave() {
    Slot* next = lock_.paused_;
    const bool stays = foreign_ || (next != nullptr && next->thread == thisThread());
    if (!stays) {
        next = nullptr;
        if (lock_.owners_ < kMaxOwners) {
            next = &lock_.slots_[lock_.owners_++];
            next->thread = thisThread();
        }
    }
    lock_.owner_.store(next, std::memory_order_release);
    lock_.mutex_.unlock();
}

} // namespace Corvid::detail
