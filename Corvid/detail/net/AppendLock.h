#pragma once

#include <Vessa/Fence.h>
#include <Vessa/Mutex.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <thread>

namespace Corvid::detail {

/// The lock of the threads that append to a stream. It belongs to the thread that used it last,
/// which enters and leaves it by plain loads and stores: an atomic operation would make each change
/// of a scene wait until the memory accesses of the one before are over. Another thread that comes
/// makes the owner give it up, at the cost of a heavy fence; after kMaxOwners of them it is a plain
/// mutex. Not recursive.
class ORVEL_CAPABILITY AppendLock {
public:
    AppendLock() { Vessa::Fence::prepare(); }

private:
#if defined(__x86_64__) && __has_builtin(__builtin_thread_pointer)
    // The standard library's is a function that is not inline.
    using ThreadId = void*;
    static ThreadId thisThread() {
        return __builtin_thread_pointer();
    }
#else
    using ThreadId = std::thread::id;
    static ThreadId thisThread() {
        return std::this_thread::get_id();
    }
#endif

    /// An owner. Used once, because an earlier owner may still look at its own.
    struct Slot {
        ThreadId thread = ThreadId();
        std::atomic<bool> inside = false;
    };

public:
    /// Holds the lock. `foreign`: for a thread that does not append, so that the owner stays.
    class ORVEL_SCOPED_CAPABILITY Holder {
    public:
        [[gnu::always_inline]] explicit Holder(AppendLock& lock, bool foreign = false)
            ORVEL_ACQUIRE(lock)
            : lock_(lock), foreign_(foreign) {
            Slot* const owner = lock_.owner_.load(std::memory_order_acquire);
            if (owner != nullptr && !foreign && owner->thread == thisThread()) {
                owner->inside.store(true, std::memory_order_relaxed);
                Vessa::Fence::light();
                if (lock_.owner_.load(std::memory_order_acquire) == owner) {
                    slot_ = owner;
                    return;
                }
                owner->inside.store(false, std::memory_order_release);
            }
            enter();
        }
        Holder(const Holder&) = delete;
        Holder& operator=(const Holder&) = delete;
        [[gnu::always_inline]] ~Holder() ORVEL_RELEASE() {
            if (slot_ != nullptr) {
                slot_->inside.store(false, std::memory_order_release);
            } else {
                leave();
            }
        }

    private:
        void enter() ORVEL_NO_THREAD_SAFETY_ANALYSIS;
        void leave() ORVEL_NO_THREAD_SAFETY_ANALYSIS;

        AppendLock& lock_;
        Slot* slot_ = nullptr;
        bool foreign_;
    };

private:
    static constexpr std::size_t kMaxOwners = 8;

    std::atomic<Slot*> owner_ = nullptr;
    Vessa::Mutex mutex_; // of all other threads; guards the members below and changes of owner_
    std::size_t owners_ = 0;
    Slot* paused_ = nullptr;
    std::array<Slot, kMaxOwners> slots_;
};

} // namespace Corvid::detail
