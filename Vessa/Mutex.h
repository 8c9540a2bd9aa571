#pragma once

#include <mutex>

/// Attributes for clang's thread-safety analysis (-Wthread-safety); empty for other compilers.
#if defined(__clang__)
#define ORVEL_THREAD_SAFETY(attribute) __attribute__((attribute))
#else
#define ORVEL_THREAD_SAFETY(attribute)
#endif
/// A type that can be locked, and one that locks during its lifetime.
#define ORVEL_CAPABILITY ORVEL_THREAD_SAFETY(capability("mutex"))
#define ORVEL_SCOPED_CAPABILITY ORVEL_THREAD_SAFETY(scoped_lockable)
/// A member that is only accessed under this lock.
#define ORVEL_GUARDED_BY(mutex) ORVEL_THREAD_SAFETY(guarded_by(mutex))
/// A function that is only called under this lock, or never under it.
#define ORVEL_REQUIRES(mutex) ORVEL_THREAD_SAFETY(requires_capability(mutex))
#define ORVEL_EXCLUDES(mutex) ORVEL_THREAD_SAFETY(locks_excluded(mutex))
/// A function that acquires or releases a lock.
#define ORVEL_ACQUIRE(...) ORVEL_THREAD_SAFETY(acquire_capability(__VA_ARGS__))
#define ORVEL_RELEASE(...) ORVEL_THREAD_SAFETY(release_capability(__VA_ARGS__))
#define ORVEL_TRY_ACQUIRE() ORVEL_THREAD_SAFETY(try_acquire_capability(true))
/// A function that the analysis cannot follow; a comment there explains why it is correct.
#define ORVEL_NO_THREAD_SAFETY_ANALYSIS ORVEL_THREAD_SAFETY(no_thread_safety_analysis)

namespace Vessa {

/// A mutex of the standard library with the attributes that the library's own lacks.
template <class Native>
class ORVEL_CAPABILITY BasicMutex {
public:
    void lock() ORVEL_ACQUIRE() { native_.lock(); }
    void unlock() ORVEL_RELEASE() { native_.unlock(); }
    bool tryLock() ORVEL_TRY_ACQUIRE() { return native_.try_lock(); }

private:
    Native native_;
};
using Mutex = BasicMutex<std::mutex>;
using RecursiveMutex = BasicMutex<std::recursive_mutex>;

/// Holds a mutex during its lifetime.
template <class M>
class ORVEL_SCOPED_CAPABILITY Lock {
public:
    explicit Lock(M& mutex) ORVEL_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
    /// Takes over a mutex that the thread has locked.
    Lock(M& mutex, std::adopt_lock_t /*locked*/) ORVEL_REQUIRES(mutex) : mutex_(mutex) {}
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;
    ~Lock() ORVEL_RELEASE() { mutex_.unlock(); }

private:
    M& mutex_;
};

} // namespace Vessa
