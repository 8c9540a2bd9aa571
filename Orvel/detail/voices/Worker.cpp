#include <Orvel/detail/voices/Worker.h>

#include <Orvel/detail/Report.h>

#include <exception>
#include <utility>

namespace Orvel::detail {

bool Worker::Signal::wait(std::chrono::milliseconds most) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, most, [this] { return woken_ || stop_; });
    woken_ = false;
    return !stop_;
}

bool Worker::Signal::stopped() {
    const std::lock_guard lock(mutex_);
    return stop_;
}

Worker::Worker(Function function) : signal_(std::make_shared<Signal>()) {
    thread_ = std::thread([signal = signal_, function = std::move(function)]() mutable {
        try {
            function(*signal);
        } catch (const std::exception& fault) {
            ORVEL_REPORT(
                Fatal, about(Diagnostic::Code::Thread, {}, {}, fault.what()),
                "A thread of the kind \"voices\" has failed: %s\n", fault.what());
        }
        function = {}; // what it owns is gone before the end is reported
        const std::lock_guard lock(signal->mutex_);
        signal->ended_ = true;
        signal->changed_.notify_all();
    });
}

Worker::~Worker() {
    std::unique_lock lock(signal_->mutex_);
    signal_->stop_ = true;
    signal_->changed_.notify_all();
    const bool ended =
        signal_->changed_.wait_for(lock, kPatience, [this] { return signal_->ended_; });
    lock.unlock();
    if (ended) {
        thread_.join();
    } else {
        thread_.detach();
    }
}

void Worker::wake() {
    const std::lock_guard lock(signal_->mutex_);
    signal_->woken_ = true;
    signal_->changed_.notify_all();
}

} // namespace Orvel::detail
