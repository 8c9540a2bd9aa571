#pragma once

#include <Orvel/Log.h>

#include <cstdio>
#include <iostream>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unistd.h>
#include <utility>
#include <vector>

namespace Orvel::Test {

/// Captures the library's log lines during its lifetime, by default of every level, as
/// "FATAL: Open OpenAL device failed\n": the level's name, then the line with the requested header
/// (none by default). Any thread may log meanwhile.
class LogCapture {
public:
    explicit LogCapture(Log::Level level = Log::Level::Debug, unsigned header = 0)
        : level_(Log::the().level()), header_(Log::the().header()) {
        Log::the().setLevel(level);
        Log::the().setHeader(header);
        Log::the().setCallback([this](Log::Level lineLevel, std::string_view text) {
            lines_.push_back(std::string(Log::levelName(lineLevel)) + ": " + std::string(text));
        });
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;
    ~LogCapture() {
        Log::the().setCallback({});
        Log::the().setHeader(header_);
        Log::the().setLevel(level_);
    }

    /// The lines since the last take() or the construction.
    [[nodiscard]] std::vector<std::string> lines() const {
        const std::lock_guard guard(Log::the());
        return lines_;
    }
    /// The same, and clears them.
    std::vector<std::string> take() {
        const std::lock_guard guard(Log::the());
        return std::exchange(lines_, {});
    }

private:
    Log::Level level_;
    unsigned header_;
    std::vector<std::string> lines_; // guarded by the log's lock, which is held in the callback
};

/// Captures the output of the process, including C libraries, to a file descriptor (STDOUT_FILENO,
/// STDERR_FILENO) during its lifetime.
class OutputCapture {
public:
    explicit OutputCapture(int descriptor)
        : descriptor_(descriptor), saved_(dup(descriptor)), file_(std::tmpfile()) {
        if (saved_ < 0 || file_ == nullptr) {
            throw std::runtime_error("OutputCapture: no temporary file");
        }
        flush();
        dup2(fileno(file_), descriptor_);
    }
    OutputCapture(const OutputCapture&) = delete;
    OutputCapture& operator=(const OutputCapture&) = delete;
    ~OutputCapture() {
        flush();
        dup2(saved_, descriptor_);
        close(saved_);
        std::fclose(file_);
    }

    /// Everything written since the last take() or the construction.
    std::string take() {
        flush();
        std::string text;
        char block[4096];
        ssize_t length = 0;
        while ((length = pread(fileno(file_), block, sizeof block, taken_)) > 0) {
            text.append(block, static_cast<std::size_t>(length));
            taken_ += length;
        }
        return text;
    }

private:
    static void flush() {
        std::cout.flush();
        std::cerr.flush();
        std::fflush(nullptr);
    }

    int descriptor_;
    int saved_;
    std::FILE* file_;
    off_t taken_ = 0;
};

} // namespace Orvel::Test
