#include <Corvid/detail/net/Loop.h>

#include <cerrno>
#include <cstdint>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>

namespace Corvid::detail {

namespace {

int newEvent() {
    const int descriptor = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    return descriptor;
}

} // namespace

Loop::Loop() : io(1), wakeUp_(io, newEvent()), work_(io.get_executor()) {
    listen();
}

void Loop::listen() {
    wakeUp_.async_wait(
        boost::asio::posix::stream_descriptor::wait_read,
        [this](const boost::system::error_code& error) {
            if (error) {
                return;
            }
            woken_ = true;
            std::uint64_t count = 0;
            [[maybe_unused]] const auto size =
                ::read(wakeUp_.native_handle(), &count, sizeof count);
            listen();
        });
}

void Loop::setDiagnostic(MultiCommunicator::Diagnostic diagnostic) {
    const std::scoped_lock lock(mutex_);
    diagnostic_ = std::move(diagnostic);
}

void Loop::report(MultiCommunicator::Severity severity, const std::string& text) const {
    MultiCommunicator::Diagnostic diagnostic;
    {
        const std::scoped_lock lock(mutex_);
        diagnostic = diagnostic_;
    }
    if (diagnostic) {
        diagnostic(severity, text);
    }
}

void Loop::wake() {
    const std::uint64_t one = 1;
    // It can fail only when so many wake-ups are waiting that one more makes no difference.
    [[maybe_unused]] const auto size = ::write(wakeUp_.native_handle(), &one, sizeof one);
}

void Loop::stop() {
    boost::system::error_code ignored;
    wakeUp_.cancel(ignored);
    work_.reset();
}

} // namespace Corvid::detail
