#pragma once

#include <Orvel/Server.h>

#include <cstdint>
#include <memory>
#include <string>

#include <orvel_show_export.h>

namespace Show {

/// Records what the clients of a server do into a capture, with its time; ShowFile and Playback
/// replay it. The file grows as it goes, can be played at any moment, and names sounds without
/// holding them. Recording ends by itself before the file exceeds its limit and before the disk is
/// full.
///
/// The server must outlive it, is polled (`receive(false)`), and has no other observer. Confined to
/// the thread that polls. Nothing is thrown but std::bad_alloc.
class ORVEL_SHOW_EXPORT CaptureRecorder {
public:
    /// What the capture says about the server, and how large it may be.
    struct Settings {
        /// The scene file that has the server's sources, so that a replay finds their sounds;
        /// empty: none.
        std::string scenePath;
        /// The most bytes that the file takes.
        std::uint64_t maxBytes = UINT64_MAX;
    };

    /// Creates the file, which must not exist yet, and records from now on. Look at isRecording()
    /// next.
    CaptureRecorder(Orvel::Server& server, const std::string& path);
    CaptureRecorder(Orvel::Server& server, const std::string& path, const Settings& settings);
    CaptureRecorder(const CaptureRecorder&) = delete;
    CaptureRecorder& operator=(const CaptureRecorder&) = delete;
    /// Ends the recording without an end mark, as if interrupted, unless finish() was called.
    ~CaptureRecorder();

    /// Whether it records. If not, and finish() was not called, error() says why.
    [[nodiscard]] bool isRecording() const noexcept;
    [[nodiscard]] const std::string& error() const noexcept;

    /// Hands what has come to the system; to be called several times a second.
    void flush();
    /// Completes the file and waits until it is on the disk. False if not everything is in it.
    bool finish();

    /// How many events are recorded.
    [[nodiscard]] std::uint64_t events() const noexcept;
    /// How much time is recorded, in seconds.
    [[nodiscard]] double seconds() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace Show
