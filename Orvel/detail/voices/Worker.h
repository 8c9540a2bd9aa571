#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

namespace Orvel::detail {

/// A thread for work that may hang, such as opening a device or a download: it is left behind if it
/// does not end in time. So its function owns, or shares, everything that it uses.
///
/// Confined, except wake().
class Worker {
public:
    /// Wakes and stops the thread.
    class Signal {
    public:
        /// Waits until wake() or stop() is called, at most this long. False if it is to stop.
        bool wait(std::chrono::milliseconds most);
        [[nodiscard]] bool stopped();

    private:
        friend class Worker;
        std::mutex mutex_;
        std::condition_variable changed_;
        bool woken_ = false;
        bool stop_ = false;
        bool ended_ = false;
    };
    using Function = std::function<void(Signal& signal)>;

    /// Starts a thread; `function` returns when its signal has stopped. An exception ends the
    /// thread and is reported. Throws std::system_error if there is no thread left.
    explicit Worker(Function function);
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;
    /// Stops the thread and waits for its end, at most kPatience.
    ~Worker();

    void wake();

private:
    static constexpr std::chrono::seconds kPatience{2};

    std::shared_ptr<Signal> signal_;
    std::thread thread_;
};

} // namespace Orvel::detail
