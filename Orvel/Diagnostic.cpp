#include <Orvel/Diagnostic.h>

#include <Orvel/Emitter.h>
#include <Orvel/Source.h>
#include <Orvel/detail/Report.h>

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <utility>

namespace Orvel {

namespace detail {

std::atomic<bool> hasSink{false};

namespace {

bool sinkIsRunning = false; // guarded by the log's lock

/// Guarded by the log's lock. Never destroyed, as the log: static objects may report at the end.
DiagnosticSink& sink() {
    static auto& one = *new DiagnosticSink;
    return one;
}

__attribute__((format(printf, 1, 0))) std::string
printed(const char* format, std::va_list arguments) {
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    std::string text(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, arguments);
    return text;
}

} // namespace

bool isHandled(const Diagnostic& diagnostic) noexcept {
    if (!hasSink.load(std::memory_order_relaxed)) {
        return false;
    }
    const std::scoped_lock guard(Log::the());
    if (sinkIsRunning || !sink()) {
        return false;
    }
    sinkIsRunning = true;
    bool handled = false;
    try {
        handled = sink()(diagnostic);
    } catch (...) { // NOLINT(bugprone-empty-catch): the log gets it instead
    }
    sinkIsRunning = false;
    return handled;
}

void report(Diagnostic diagnostic, const Log::Site& site, const char* format, ...) noexcept {
    std::va_list arguments;
    va_start(arguments, format);
    try {
        const std::string line = printed(format, arguments);
        diagnostic.level = site.level;
        diagnostic.text = line.substr(0, line.find_last_not_of(" \n") + 1);
        if (!isHandled(diagnostic)) {
            Log::the().write(site, "%s", line.c_str());
        }
    } catch (...) { // out of memory
        std::fputs("Orvel: a diagnostic was lost\n", stderr);
    }
    va_end(arguments);
}

} // namespace detail

Diagnostic::Part::Part(const Source& source) : kind(Kind::Source), id(source.id()) {}

Diagnostic::Part::Part(const Emitter& emitter) : kind(Kind::Emitter), id(emitter.id()) {}

void setDiagnosticSink(DiagnosticSink sink) {
    const std::scoped_lock guard(Log::the());
    detail::hasSink.store(static_cast<bool>(sink), std::memory_order_relaxed);
    detail::sink() = std::move(sink);
}

void report(
    const Diagnostic& diagnostic, const char* module, const char* file, int line,
    const char* function) noexcept {
    if (!detail::isHandled(diagnostic)) {
        Log::the().write(
            {diagnostic.level, module, file, line, function}, "%s\n", diagnostic.text.c_str());
    }
}

} // namespace Orvel
