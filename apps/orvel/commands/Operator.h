#pragma once

#include "network/RemoteServers.h"
#include "process/Keyboard.h"
#include <Show/Playback.h>

#include <chrono>
#include <string>

namespace OrvelTool {

/// Lets the user at the terminal control a playback by keys, and shows its state in a line. Does
/// nothing if standard input is no terminal. Confined to the main thread.
class Operator {
public:
    /// Both must outlive it.
    Operator(Show::Playback& playback, const RemoteServers& servers);
    Operator(const Operator&) = delete;
    Operator& operator=(const Operator&) = delete;
    /// Removes the line.
    ~Operator();

    /// Whether there is a terminal.
    [[nodiscard]] bool isPresent() const noexcept { return keyboard_.isOpen(); }
    /// Obeys the keys, and draws the line ten times a second. Returns false to end the program.
    bool serve();

private:
    using Clock = std::chrono::steady_clock;

    bool take(char key);
    bool enter();
    void complete();
    [[nodiscard]] std::string line() const;

    Show::Playback& playback_;
    const RemoteServers& servers_;
    Keyboard keyboard_;
    std::string text_;    // typed of a name
    std::string problem_; // with the latest key
    int escape_ = 0;      // bytes of an escape sequence so far
    Clock::time_point nextDrawing_{};
};

} // namespace OrvelTool
