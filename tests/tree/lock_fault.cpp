// Not built. clang must refuse it: LockChecks checks that the analysis is on.
#include <Vessa/Mutex.h>

class Counter {
public:
    int value() const { return value_; }

private:
    mutable Vessa::Mutex mutex_;
    int value_ ORVEL_GUARDED_BY(mutex_) = 0;
};
