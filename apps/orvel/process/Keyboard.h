#pragma once

#include <string>

namespace OrvelTool {

/// Reads single keys from the terminal on standard input during its lifetime. Does nothing if that
/// is no terminal, or not this process's. The terminal is as before after its end, during Ctrl-Z,
/// and after any signal that ends the process, except SIGKILL. At most one instance at a time, on
/// the main thread.
class Keyboard {
public:
    Keyboard();
    Keyboard(const Keyboard&) = delete;
    Keyboard& operator=(const Keyboard&) = delete;
    ~Keyboard();

    [[nodiscard]] bool isOpen() const noexcept { return open_; }
    /// The bytes of the keys pressed since the last call; never waits.
    std::string read();

    /// Restores the terminal, if there is an instance. For handlers of signals.
    static void restore() noexcept;

private:
    bool open_ = false;
};

} // namespace OrvelTool
