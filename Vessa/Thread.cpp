#include <Vessa/Thread.h>

#include <exception>
#include <system_error>
#include <utility>

namespace Vessa {

Thread::~Thread() {
    join();
}

void Thread::setFailureHandler(std::function<void(const std::string& reason)> handler) {
    onFailure_ = std::move(handler);
}

bool Thread::start() {
    if (thread_.joinable()) {
        return false;
    }
    try {
        thread_ = std::thread([this] {
            try {
                result_ = main();
            } catch (const std::exception& fault) { // may not leave a thread's main function
                fail(fault.what());
            } catch (...) {
                fail("an unknown exception");
            }
        });
    } catch (const std::system_error&) {
        return false;
    }
    return true;
}

void Thread::fail(const char* reason) noexcept {
    result_ = -1;
    if (onFailure_) {
        onFailure_(reason);
    }
}

int Thread::join() {
    if (thread_.joinable()) {
        thread_.join();
    }
    return result_;
}

} // namespace Vessa
