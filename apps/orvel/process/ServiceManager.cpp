#include "process/ServiceManager.h"

#include <Show/detail/VisibleText.h>

#include <charconv>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace OrvelTool {

namespace {

std::string_view environment(const char* name) {
    const char* value = std::getenv(name); // NOLINT(concurrency-mt-unsafe)
    return value == nullptr ? "" : value;
}

long long number(std::string_view text) {
    long long value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() ? value : 0;
}

} // namespace

ServiceManager::ServiceManager() : socket_(environment("NOTIFY_SOCKET")) {
    const long long time = number(environment("WATCHDOG_USEC"));
    const std::string_view process = environment("WATCHDOG_PID");
    if (time > 0 && (process.empty() || number(process) == getpid())) {
        interval_ = std::chrono::microseconds(time / 2);
    }
}

void ServiceManager::waiting(const std::string& missing) const {
    status("waiting for " + Show::visible(missing) + "\nEXTEND_TIMEOUT_USEC=10000000");
}

void ServiceManager::alive(Clock::time_point now) {
    if (interval_ > Clock::duration::zero() && now >= next_) {
        next_ = now + interval_;
        notify("WATCHDOG=1");
    }
}

void ServiceManager::notify(const std::string& text) const {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (socket_.empty() || socket_.size() >= sizeof address.sun_path ||
        (socket_.front() != '/' && socket_.front() != '@')) {
        return;
    }
    std::memcpy(address.sun_path, socket_.data(), socket_.size());
    if (socket_.front() == '@') {
        address.sun_path[0] = '\0'; // the abstract namespace
    }
    const int descriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0) {
        return;
    }
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + socket_.size());
    // A failure is ignored: no one listens who could be notified.
    [[maybe_unused]] const ssize_t sent = sendto(
        descriptor, text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT,
        reinterpret_cast<const sockaddr*>(&address), size);
    close(descriptor);
}

} // namespace OrvelTool
