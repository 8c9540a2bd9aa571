#pragma once

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>

#include <orvel_export.h>

namespace Orvel {

/// The module name of all log lines of the library: "Orvel".
ORVEL_EXPORT extern const char* const LogModuleName;

/// The destination of the library's diagnostics. One log per process; created by its first use and
/// never destroyed.
///
/// A line is the header, as selected by the mask, then the message, which includes its line end.
/// The default is level `Notice`, header `kHeaderLevel | kHeaderModule`, standard error.
///
/// Synchronised: every operation may be called from any thread. A recursive lock is held while the
/// filter runs and a line is written, so lines never mix; therefore a filter or callback must not
/// wait for another thread that logs, nor replace itself. Lines logged by a filter or callback go
/// to standard error, which prevents infinite recursion.
class ORVEL_EXPORT Log {
public:
    enum class Level : int { Log = 0, Fatal = 1, Warning = 2, Notice = 3, Info = 4, Debug = 5 };

    /// Bits of the header mask, in output order. Each part ends with the separator: a colon and a
    /// space, or a tab if `kHeaderTabs` is set. A header ends with one space, or with a line break
    /// if `kHeaderEndNewline` is set. A mask of 0 gives no header.
    static constexpr unsigned kHeaderBeginNewline = 0x0001; ///< a line break first
    static constexpr unsigned kHeaderLevel = 0x0002;        ///< the level's name
    static constexpr unsigned kHeaderTime = 0x0004;         ///< seconds since the log was created
    static constexpr unsigned kHeaderModule = 0x0008;       ///< the module's name
    static constexpr unsigned kHeaderFile = 0x0010;         ///< the source file, no extension
    static constexpr unsigned kHeaderLine = 0x0020;         ///< with kHeaderFile: a colon, its line
    static constexpr unsigned kHeaderFunction = 0x0040;     ///< the calling function's signature
    static constexpr unsigned kHeaderEndNewline = 0x0080;   ///< a line break at the header's end
    static constexpr unsigned kHeaderColour = 0x2000;       ///< with kHeaderLevel: in colour
    static constexpr unsigned kHeaderTabs = 0x4000;         ///< tabs as separators

    /// Whether lines of a module are written.
    using ModuleFilter = std::function<bool(const char* module)>;
    /// Receives one whole line, including the header; `text` is valid only during the call.
    using Callback = std::function<void(Level level, std::string_view text)>;

    /// The place of a log call. The texts must outlive the call.
    struct Site {
        Level level;
        const char* module;
        const char* file; ///< __FILE__; the header omits the extension
        int line;
        const char* function; ///< __PRETTY_FUNCTION__
    };

    /// The process's log, created by the first call.
    static Log& the();

    Log(const Log&) = delete;
    Log& operator=(const Log&) = delete;

    /// A line of level 1 or above is written when its level is at most this one; lines of
    /// `Level::Log` are always written.
    [[nodiscard]] Level level() const noexcept;
    void setLevel(Level level) noexcept;

    [[nodiscard]] unsigned header() const noexcept;
    void setHeader(unsigned mask) noexcept;

    /// An empty filter, the default, passes every module. A filter that throws passes the line. It
    /// is called on the thread that logs, and never after this call has replaced it.
    void setModuleFilter(ModuleFilter filter);

    /// Sends lines to a stream, which must outlive its use here; null means standard error.
    void setStream(std::ostream* stream);
    /// Appends lines to a file. If it cannot be opened, returns false and keeps the former
    /// destination.
    bool setFile(const std::string& path);
    /// Passes each line to the host instead of writing it. Called on the thread that logs, and
    /// never after another set function has returned. If the callback throws, the line goes to
    /// standard error. An empty callback means standard error.
    void setCallback(Callback callback);

    /// The log's lock, for a host that writes several lines without interruption
    /// (`std::scoped_lock`).
    void lock();
    void unlock();

    /// Whether a line of this level would be written now, regardless of the module filter.
    [[nodiscard]] static bool passes(Level level) noexcept;

    /// Writes one line if its level passes; `format` is as for printf. Never throws.
    void write(const Site& site, const char* format, ...) noexcept
        __attribute__((format(printf, 3, 4)));

    /// The level's name in the header, such as "WARNING".
    [[nodiscard]] static const char* levelName(Level level) noexcept;

private:
    struct State;

    Log();
    ~Log() = default;

    std::unique_ptr<State> state_;
};

} // namespace Orvel
