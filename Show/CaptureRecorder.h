#pragma once

#include <Orvel/Server.h>

#include <cstdint>
#include <memory>
#include <string>

#include <orvel_show_export.h>

namespace Show {

/// Records the clients' changes of a server to a capture, with their times; ShowFile and Playback
/// replay it. The file can be played at any time, and refers to sounds without containing them.
/// Recording stops by itself before the file exceeds its limit and before the disk is full.
///
/// The server must outlive it, is polled (`receive(false)`), and has no other observer. Confined to
/// the thread that polls. Throws only std::bad_alloc.
class ORVEL_SHOW_EXPORT CaptureRecorder {
public:
    /// Settings of the capture.
    struct Settings {
        /// The scene file of the server's sources, so that a replay finds their sounds; empty:
        /// none.
        std::string scenePath;
        /// Maximum size of the file in bytes.
        std::uint64_t maxBytes = UINT64_MAX;
    };

    /// Creates the file, which must not exist yet, and starts to record. Check isRecording()
    /// afterwards.
    CaptureRecorder(Orvel::Server& server, const std::string& path);
    CaptureRecorder(Orvel::Server& server, const std::string& path, const Settings& settings);
    CaptureRecorder(const CaptureRecorder&) = delete;
    CaptureRecorder& operator=(const CaptureRecorder&) = delete;
    /// Ends the recording without an end mark, as if interrupted, unless finish() was called.
    ~CaptureRecorder();

    /// Whether it records. If not, and finish() was not called, error() has the reason.
    [[nodiscard]] bool isRecording() const noexcept;
    [[nodiscard]] const std::string& error() const noexcept;

    /// Writes buffered data to the file; call it several times a second.
    void flush();
    /// Completes the file and waits until it is on the disk. Returns false if it is incomplete.
    bool finish();

    /// Number of recorded events.
    [[nodiscard]] std::uint64_t events() const noexcept;
    /// Recorded time in seconds.
    [[nodiscard]] double seconds() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace Show
