#pragma once

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>

#include <orvel_export.h>

namespace Orvel {

/// The module name under which the library writes every one of its log lines: "Orvel".
ORVEL_EXPORT extern const char* const LogModuleName;

/// Where the library's diagnostics go. One log serves the whole process; it is created by its
/// first use and lives until the process ends.
///
/// A line is the header that the mask asks for, then the message, which carries its own line end.
/// The default is level `Notice`, header `kHeaderLevel | kHeaderModule`, standard error.
///
/// Synchronised: every operation may be called from any thread. One lock, recursive, is held while
/// the filter is asked and a line is written, so lines never mix; a filter or callback therefore
/// must not wait for another thread that logs, nor replace itself. What a filter or callback logs
/// itself goes to standard error, so that it cannot call itself for ever.
class ORVEL_EXPORT Log {
public:
    enum class Level : int { Log = 0, Fatal = 1, Warning = 2, Notice = 3, Info = 4, Debug = 5 };

    /// Bits of the header mask, in the order in which they are written. Parts end in the separator:
    /// a colon and a blank, or a tab where `kHeaderTabs` is set. A header ends in one blank, or in
    /// a line break where `kHeaderEndNewline` is set. A mask of 0 asks for no header at all.
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

    /// Tells whether lines of a module are written.
    using ModuleFilter = std::function<bool(const char* module)>;
    /// Takes one whole line, header included; `text` lives only during the call.
    using Callback = std::function<void(Level level, std::string_view text)>;

    /// Where a log call stands. The texts must outlive the call.
    struct Site {
        Level level;
        const char* module;
        const char* file; ///< as __FILE__ gives it; the extension is dropped in the header
        int line;
        const char* function; ///< as __PRETTY_FUNCTION__ gives it
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

    /// An empty filter, the default, lets every module pass. A filter that throws lets it pass.
    /// The filter is asked on the thread that logs, and never again once this call has replaced it.
    void setModuleFilter(ModuleFilter filter);

    /// Sends lines to a stream, which must outlive its use here; null means standard error.
    void setStream(std::ostream* stream);
    /// Appends lines to a file. False, and the former destination stays, if it cannot be opened.
    bool setFile(const std::string& path);
    /// Hands each line to the host instead of writing it. Called on the thread that logs, and never
    /// again once another set function has returned. A line whose callback throws goes to standard
    /// error. An empty callback means standard error.
    void setCallback(Callback callback);

    /// The log's lock, for a host that writes several lines in a row (`std::scoped_lock`).
    void lock();
    void unlock();

    /// True when a line of this level would be written now, the module filter aside.
    [[nodiscard]] static bool passes(Level level) noexcept;

    /// Writes one line if its level passes; `format` is that of printf. Never throws.
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
