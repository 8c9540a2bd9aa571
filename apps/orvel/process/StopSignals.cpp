#include "process/StopSignals.h"

#include "process/Keyboard.h"

#include <atomic>

namespace OrvelTool {

namespace {

std::atomic<bool> signalCame{false};
static_assert(std::atomic<bool>::is_always_lock_free); // required in a signal handler

} // namespace

StopSignals::StopSignals() {
    signalCame = false;
    struct sigaction action {};
    action.sa_handler = [](int) {
        signalCame = true;
        Keyboard::restore(); // a second signal leaves no time for it
    };
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    sigaction(SIGINT, &action, &formerInterrupt_);
    sigaction(SIGTERM, &action, &formerTerminate_);
    sigaction(SIGHUP, nullptr, &formerHangUp_);
    if (formerHangUp_.sa_handler != SIG_IGN) {
        sigaction(SIGHUP, &action, nullptr);
    }
}

StopSignals::~StopSignals() {
    sigaction(SIGINT, &formerInterrupt_, nullptr);
    sigaction(SIGTERM, &formerTerminate_, nullptr);
    sigaction(SIGHUP, &formerHangUp_, nullptr);
}

bool StopSignals::came() noexcept {
    return signalCame;
}

} // namespace OrvelTool
