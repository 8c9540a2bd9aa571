#pragma once

#include <chrono>
#include <string>

namespace OrvelTool {

/// A progress bar on standard error. Shown only on a terminal, and only if the work takes longer
/// than a second. Confined to one thread at a time.
class Progress {
public:
    explicit Progress(const std::string& what);
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    /// Removes the bar.
    ~Progress();

    /// Shows the progress, from 0 to 1; draws at most ten times a second.
    void show(double done);
    /// Removes the bar until the next show(), to make room for a message.
    void clear();

private:
    using Clock = std::chrono::steady_clock;

    std::string what_;
    bool terminal_;
    bool visible_ = false;
    Clock::time_point nextDrawing_;
};

} // namespace OrvelTool
