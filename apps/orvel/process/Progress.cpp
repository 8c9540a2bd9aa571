#include "process/Progress.h"

#include <Show/detail/VisibleText.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <unistd.h>

namespace OrvelTool {

Progress::Progress(const std::string& what)
    : what_(Show::visible(what)), terminal_(isatty(STDERR_FILENO) == 1),
      nextDrawing_(Clock::now() + std::chrono::seconds(1)) {}

Progress::~Progress() {
    clear();
}

void Progress::show(double done) {
    if (!terminal_) {
        return;
    }
    const auto now = Clock::now();
    if (now < nextDrawing_) {
        return;
    }
    nextDrawing_ = now + std::chrono::milliseconds(100);
    constexpr int kWidth = 40;
    const double part = std::isfinite(done) ? std::clamp(done, 0.0, 1.0) : 0.0;
    const auto filled = static_cast<std::size_t>(part * kWidth);
    const std::string bar = std::string(filled, '#') + std::string(kWidth - filled, '.');
    std::fprintf(
        stderr, "\r\033[K%s [%s] %3d %%", what_.c_str(), bar.c_str(),
        static_cast<int>(part * 100.0));
    std::fflush(stderr);
    visible_ = true;
}

void Progress::clear() {
    if (visible_) {
        std::fputs("\r\033[K", stderr);
        std::fflush(stderr);
        visible_ = false;
    }
}

} // namespace OrvelTool
