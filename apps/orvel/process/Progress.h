#pragma once

#include <chrono>
#include <string>

namespace OrvelTool {

/// A progress bar on standard error. It shows itself only on a terminal, and only once the work
/// has taken longer than a second. Confined to one thread at a time.
class Progress {
public:
    explicit Progress(const std::string& what);
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    /// Takes the bar away.
    ~Progress();

    /// Shows how much is done, from 0 to 1; draws at most ten times a second.
    void show(double done);
    /// Takes the bar away until the next show(), to make room for a message.
    void clear();

private:
    using Clock = std::chrono::steady_clock;

    std::string what_;
    bool terminal_;
    bool visible_ = false;
    Clock::time_point nextDrawing_;
};

} // namespace OrvelTool
