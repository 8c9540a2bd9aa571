#include "process/Keyboard.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <poll.h>
#include <signal.h>
#include <termios.h>
#include <unistd.h>

namespace OrvelTool {

namespace {

// For the handlers of signals.
std::atomic<bool> keysAreRead{false};
termios formerTerminal{};
termios keyTerminal{};

constexpr std::array kFatal{SIGQUIT, SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGALRM};
std::array<struct sigaction, kFatal.size()> formerFatal{};
struct sigaction formerStop {};
struct sigaction formerContinue {};

/// A process in the background would be stopped if it used the terminal.
bool ownsTerminal() noexcept {
    return tcgetpgrp(STDIN_FILENO) == getpgrp();
}

void readKeys() noexcept {
    if (keysAreRead && ownsTerminal()) {
        tcsetattr(STDIN_FILENO, TCSADRAIN, &keyTerminal);
    }
}

} // namespace

Keyboard::Keyboard() {
    if (isatty(STDIN_FILENO) != 1 || !ownsTerminal() ||
        tcgetattr(STDIN_FILENO, &formerTerminal) != 0) {
        return;
    }
    open_ = true;
    keyTerminal = formerTerminal;
    keyTerminal.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    keyTerminal.c_cc[VMIN] = 1;
    keyTerminal.c_cc[VTIME] = 0;
    keysAreRead = true;
    struct sigaction action {};
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    action.sa_handler = [](int signal) {
        restore();
        raise(signal); // has its usual effect after this handler
    };
    for (std::size_t i = 0; i < kFatal.size(); ++i) {
        sigaction(kFatal[i], nullptr, &formerFatal[i]);
        if (formerFatal[i].sa_handler == SIG_DFL) {
            sigaction(kFatal[i], &action, nullptr);
        }
    }
    action.sa_flags = SA_RESTART;
    action.sa_handler = [](int) {
        restore();
        raise(SIGSTOP);
    };
    sigaction(SIGTSTP, &action, &formerStop);
    action.sa_handler = [](int) { readKeys(); };
    sigaction(SIGCONT, &action, &formerContinue);
    readKeys();
}

Keyboard::~Keyboard() {
    if (!open_) {
        return;
    }
    restore();
    keysAreRead = false;
    sigaction(SIGTSTP, &formerStop, nullptr);
    sigaction(SIGCONT, &formerContinue, nullptr);
    for (std::size_t i = 0; i < kFatal.size(); ++i) {
        sigaction(kFatal[i], &formerFatal[i], nullptr);
    }
}

void Keyboard::restore() noexcept {
    if (keysAreRead && ownsTerminal()) {
        tcsetattr(STDIN_FILENO, TCSADRAIN, &formerTerminal);
    }
}

std::string Keyboard::read() {
    std::string keys;
    pollfd input{STDIN_FILENO, POLLIN, 0};
    while (open_ && ownsTerminal() && ::poll(&input, 1, 0) > 0) {
        std::array<char, 256> some{};
        const ssize_t got = ::read(STDIN_FILENO, some.data(), some.size());
        if (got <= 0) {
            break; // the terminal is gone, which SIGHUP reports
        }
        keys.append(some.data(), static_cast<std::size_t>(got));
    }
    return keys;
}

} // namespace OrvelTool
