#include <Orvel/Log.h>

#include <Orvel/detail/LogLine.h>
#include <Vessa/Mutex.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <fstream>
#include <iostream>

namespace Orvel {

const char* const LogModuleName = "Orvel";

namespace detail {

std::atomic<int> logLevel{static_cast<int>(Log::Level::Notice)};

} // namespace detail

namespace {

constexpr std::array<const char*, 6> kLevelNames{"LOG",    "FATAL", "WARNING",
                                                 "NOTICE", "INFO",  "DEBUG"};
// ANSI colour sequences, one per level: blue, red, yellow, green, cyan, magenta.
constexpr std::array<const char*, 6> kLevelColours{"\x1b[34m", "\x1b[31m", "\x1b[33m",
                                                   "\x1b[32m", "\x1b[36m", "\x1b[35m"};
constexpr const char* kColourOff = "\x1b[0m";

std::size_t levelIndex(Log::Level level) noexcept {
    return static_cast<std::size_t>(std::clamp(static_cast<int>(level), 0, 5));
}

/// The path in the source tree, without its extension. With a base directory, a compiler cache
/// makes it relative to the build folder.
std::string_view nameInTree(std::string_view file) {
    while (file.starts_with("../")) {
        file.remove_prefix(3);
    }
    const auto dot = file.rfind('.');
    const auto slash = file.rfind('/');
    const bool inName =
        dot != std::string_view::npos && (slash == std::string_view::npos || dot > slash);
    return inName ? file.substr(0, dot) : file;
}

void toStandardError(std::string_view text) noexcept {
    std::fwrite(text.data(), 1, text.size(), stderr);
    std::fflush(stderr);
}

} // namespace

struct Log::State {
    using Clock = std::chrono::steady_clock;

    const Clock::time_point start = Clock::now();
    std::atomic<unsigned> header{kHeaderLevel | kHeaderModule};

    Vessa::RecursiveMutex mutex; // because a filter or callback may itself log
    ModuleFilter filter ORVEL_GUARDED_BY(mutex);
    Callback callback ORVEL_GUARDED_BY(mutex);
    std::ofstream file ORVEL_GUARDED_BY(mutex);
    std::ostream* stream ORVEL_GUARDED_BY(mutex) = nullptr; // null: standard error
    // A filter or callback is running, on this very thread.
    bool busy ORVEL_GUARDED_BY(mutex) = false;
    std::string line ORVEL_GUARDED_BY(mutex); // kept, so that a line seldom allocates

    bool accepts(const char* module) ORVEL_REQUIRES(mutex);
    void appendHeader(const Site& site) ORVEL_REQUIRES(mutex);
    void appendMessage(const char* format, std::va_list arguments)
        __attribute__((format(printf, 2, 0))) ORVEL_REQUIRES(mutex);
    void emit(Level level) ORVEL_REQUIRES(mutex);
    void redirect(std::ostream* newStream, Callback newCallback) ORVEL_REQUIRES(mutex);
};

bool Log::State::accepts(const char* module) {
    if (!filter) {
        return true;
    }
    busy = true;
    bool accepted = true;
    try {
        accepted = filter(module);
    } catch (...) { // a line too many is better than a lost one
    }
    busy = false;
    return accepted;
}

void Log::State::appendHeader(const Site& site) {
    const unsigned mask = header.load(std::memory_order_relaxed);
    if (mask == 0) {
        return;
    }
    const char* separator = (mask & kHeaderTabs) != 0 ? "\t" : ": ";
    if ((mask & kHeaderBeginNewline) != 0) {
        line += '\n';
    }
    if ((mask & kHeaderLevel) != 0) {
        const bool colour = (mask & kHeaderColour) != 0;
        line += colour ? kLevelColours[levelIndex(site.level)] : "";
        line += kLevelNames[levelIndex(site.level)];
        line += separator;
        line += colour ? kColourOff : "";
    }
    if ((mask & kHeaderTime) != 0) {
        const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
        std::array<char, 32> text{};
        std::snprintf(text.data(), text.size(), "%.6f", seconds);
        line += text.data();
        line += separator;
    }
    if ((mask & kHeaderModule) != 0) {
        line += site.module;
        line += separator;
    }
    if ((mask & kHeaderFile) != 0) {
        line += nameInTree(site.file);
        if ((mask & kHeaderLine) != 0) {
            line += ':';
            line += std::to_string(site.line);
        }
        line += separator;
    }
    if ((mask & kHeaderFunction) != 0) {
        line += site.function;
        line += separator;
    }
    line += (mask & kHeaderEndNewline) != 0 ? '\n' : ' ';
}

void Log::State::appendMessage(const char* format, std::va_list arguments) {
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    if (length <= 0) {
        return;
    }
    const std::size_t before = line.size();
    line.resize(before + static_cast<std::size_t>(length) + 1);
    std::vsnprintf(line.data() + before, static_cast<std::size_t>(length) + 1, format, arguments);
    line.pop_back();
}

void Log::State::emit(Level level) {
    if (callback) {
        busy = true;
        try {
            callback(level, line);
        } catch (...) {
            toStandardError(line);
        }
        busy = false;
    } else if (stream != nullptr) {
        stream->write(line.data(), static_cast<std::streamsize>(line.size()));
        stream->flush();
    } else {
        toStandardError(line);
    }
}

void Log::State::redirect(std::ostream* newStream, Callback newCallback) {
    callback = std::move(newCallback);
    stream = newStream;
    if (newStream != &file) {
        file = std::ofstream();
    }
}

Log::Log() : state_(std::make_unique<State>()) {}

Log& Log::the() {
    // Never destroyed, because static objects of the host may still log during process exit.
    static Log* const log = new Log;
    return *log;
}

Log::Level Log::level() const noexcept {
    return static_cast<Level>(detail::logLevel.load(std::memory_order_relaxed));
}

void Log::setLevel(Level level) noexcept {
    detail::logLevel.store(static_cast<int>(levelIndex(level)), std::memory_order_relaxed);
}

unsigned Log::header() const noexcept {
    return state_->header.load(std::memory_order_relaxed);
}

void Log::setHeader(unsigned mask) noexcept {
    state_->header.store(mask, std::memory_order_relaxed);
}

void Log::setModuleFilter(ModuleFilter filter) {
    const Vessa::Lock guard(state_->mutex);
    state_->filter = std::move(filter);
}

void Log::setStream(std::ostream* stream) {
    const Vessa::Lock guard(state_->mutex);
    state_->redirect(stream, nullptr);
}

bool Log::setFile(const std::string& path) {
    std::ofstream file(path, std::ios::app | std::ios::binary);
    if (!file) {
        return false;
    }
    const Vessa::Lock guard(state_->mutex);
    state_->file = std::move(file);
    state_->redirect(&state_->file, nullptr);
    return true;
}

void Log::setCallback(Callback callback) {
    const Vessa::Lock guard(state_->mutex);
    state_->redirect(nullptr, std::move(callback));
}

// The caller keeps the lock, which the analysis cannot follow.
void Log::lock() ORVEL_NO_THREAD_SAFETY_ANALYSIS {
    state_->mutex.lock();
}

void Log::unlock() ORVEL_NO_THREAD_SAFETY_ANALYSIS {
    state_->mutex.unlock();
}

bool Log::passes(Level level) noexcept {
    return detail::logPasses(level);
}

void Log::write(const Site& site, const char* format, ...) noexcept {
    if (!passes(site.level)) {
        return;
    }
    std::va_list arguments;
    va_start(arguments, format);
    try {
        const Vessa::Lock guard(state_->mutex);
        if (state_->busy) {
            std::vfprintf(stderr, format, arguments);
        } else if (state_->accepts(site.module)) {
            state_->line.clear();
            state_->appendHeader(site);
            state_->appendMessage(format, arguments);
            state_->emit(site.level);
        }
    } catch (...) { // out of memory, or a stream that throws; cannot be reported
        std::fputs("Orvel: a log line was lost\n", stderr);
    }
    va_end(arguments);
}

const char* Log::levelName(Level level) noexcept {
    return kLevelNames[levelIndex(level)];
}

} // namespace Orvel
