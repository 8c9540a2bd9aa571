#pragma once

#include <Orvel/Log.h>

#include <functional>
#include <string>

#include <orvel_export.h>

namespace Orvel {

class Emitter;
class Source;

/// A failure as a value. Its log form is one or more lines.
struct Diagnostic {
    enum class Code {
        Other,         ///< of an application, or of a library above this one
        Misuse,        ///< an invalid call, such as creating a part with an id in use
        Parameter,     ///< an unusable parameter of a back end; subject: its name
        UnknownKind,   ///< a back end's kind is unknown, or registered twice; subject: the kind
        NoDevice,      ///< no sound device, or it refuses a context; the back end stays inert
        OpenAL,        ///< OpenAL refuses an operation; text: the operation
        Voices,        ///< more emitters play than a back end mixes; reported once
        CannotFetch,   ///< subject: the URL
        CannotPlay,    ///< no back end supports the format; subject: the sound's URL, if any
        File,          ///< a file of sample data cannot be read or written; subject: its name
        SoundNotSent,  ///< a client back end sends no sounds: servers have their own
        LostPeer,      ///< a connection has ended
        InvalidEvent,  ///< an event of a peer that is invalid here
        UnknownSource, ///< a server reports on a source that is missing here
        NotDriving,    ///< another client drives the server; subject: the server
        Network,       ///< listening, searching, connecting, or a refused peer
        WebServer,     ///< a web server cannot listen, or refuses a request
        Thread,        ///< a thread cannot start, or has failed; nothing is received
        LeftOut,       ///< too many diagnostics caused by peers; text: the number left out
        Loading,       ///< no failure: a back end starts to load a sound; subject: its URL
        SoundSet,      ///< no failure: a source was given samples
        ReceiveEnded,  ///< no failure: a client back end's thread has ended
    };

    /// The part of the scene that it concerns.
    struct Part {
        enum class Kind { None, Source, Emitter };

        Part() = default;
        ORVEL_EXPORT Part(const Source& source);   // NOLINT(google-explicit-constructor)
        ORVEL_EXPORT Part(const Emitter& emitter); // NOLINT(google-explicit-constructor)

        Kind kind = Kind::None;
        int id = 0;
    };

    Code code = Code::Other;
    /// The severity. Fatal: something will not be heard, sent or received.
    Log::Level level = Log::Level::Warning;
    Part part{};
    std::string subject{}; ///< see Code; may be empty
    std::string reason{};  ///< the cause, if known separately; may be empty
    std::string text{};    ///< one sentence, as in the log, without header and line end
};

/// Receives the process's diagnostics. Returns true if it has handled one; otherwise the library
/// writes its lines to the log or to the standard stream.
using DiagnosticSink = std::function<bool(const Diagnostic& diagnostic)>;

/// Installs the process's sink; an empty one, the default, leaves everything to the log. The sink
/// gets every diagnostic, regardless of the log's level and filter; those caused by peers are
/// limited like their log lines (docs/limits.md).
///
/// Synchronised. The sink is called on the reporting thread, with the log's lock held, and never
/// after this call has replaced it; so it must not wait for another thread that reports.
/// Diagnostics that it causes itself go to the log. If it throws, the diagnostic counts as
/// unhandled.
ORVEL_EXPORT void setDiagnosticSink(DiagnosticSink sink);

/// Hands a diagnostic to the sink. Unless that deals with it, writes its text to the log, as a line
/// of `module`. For back ends and hosts. Synchronised; never throws.
ORVEL_EXPORT void report(
    const Diagnostic& diagnostic, const char* module = LogModuleName,
    const char* file = __builtin_FILE(), int line = __builtin_LINE(),
    const char* function = __builtin_FUNCTION()) noexcept; // clang 14 has no std::source_location

} // namespace Orvel
