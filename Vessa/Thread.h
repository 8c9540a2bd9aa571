#pragma once

#include <functional>
#include <string>
#include <thread>

#include <orvel_export.h>

namespace Vessa {

/// A thread that runs main() of its derived class. Confined to the thread that made it, but for
/// main(). The derived class's destructor, or its owner, joins before the object goes.
class ORVEL_EXPORT Thread {
public:
    Thread() = default;
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;
    /// Joins.
    virtual ~Thread();

    /// Called on the thread when an exception has ended main(), with its text. To be set before
    /// start(); it must not throw.
    void setFailureHandler(std::function<void(const std::string& reason)> handler);

    /// Starts main() on a new thread; false if it runs already or the system has no thread left.
    bool start();
    /// Waits until main() has returned; gives its result, or 0 if it was never started.
    int join();

protected:
    /// The thread's body. An exception ends the thread with the result -1, after the handler.
    virtual int main() = 0;

private:
    void fail(const char* reason) noexcept;

    std::function<void(const std::string&)> onFailure_;
    std::thread thread_;
    int result_ = 0;
};

} // namespace Vessa
