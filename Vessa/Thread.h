#pragma once

#include <functional>
#include <string>
#include <thread>

#include <orvel_export.h>

namespace Vessa {

/// A thread that runs main() of its derived class. Confined to the thread that created it, except
/// main(). The destructor of the derived class, or its owner, must join before the object is
/// destroyed.
class ORVEL_EXPORT Thread {
public:
    Thread() = default;
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;
    /// Joins.
    virtual ~Thread();

    /// Called on the thread with the exception's text if an exception ends main(). Set it before
    /// start(); it must not throw.
    void setFailureHandler(std::function<void(const std::string& reason)> handler);

    /// Starts main() on a new thread. Returns false if it is running or the system has no thread
    /// left.
    bool start();
    /// Waits until main() has returned. Returns its result, or 0 if it was never started.
    int join();

protected:
    /// The thread's main function. An exception ends the thread with the result -1, after the
    /// handler.
    virtual int main() = 0;

private:
    void fail(const char* reason) noexcept;

    std::function<void(const std::string&)> onFailure_;
    std::thread thread_;
    int result_ = 0;
};

} // namespace Vessa
