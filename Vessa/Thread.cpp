#include <Vessa/Thread.h>

#include <system_error>

namespace Vessa {

Thread::~Thread() {
    join();
}

bool Thread::start() {
    if (thread_.joinable()) {
        return false;
    }
    try {
        thread_ = std::thread([this] {
            try {
                result_ = main();
            } catch (...) { // nothing may leave a thread's main function
                result_ = -1;
            }
        });
    } catch (const std::system_error&) {
        return false;
    }
    return true;
}

int Thread::join() {
    if (thread_.joinable()) {
        thread_.join();
    }
    return result_;
}

} // namespace Vessa
