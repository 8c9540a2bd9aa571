#pragma once

#include <Show/detail/OutputFile.h>
#include <Show/detail/Report.h>

#include <Orvel/Server.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Show {

/// Writes the events of a sound server to a capture, with the time since the writer was created.
/// The file is valid at any time. The recording stops, with a report, before it exceeds its limit
/// and before the disk is full, since clients decide how much there is to record. Confined to one
/// thread at a time.
class CaptureWriter : public Orvel::Server::Observer {
public:
    /// The limit does not allow a file at all.
    struct SizeLimit : OutputError {
        using OutputError::OutputError;
    };

    /// Free space left on the disk: this many bytes, or a twentieth of a small disk.
    static constexpr std::uint64_t kMinFreeBytes = std::uint64_t{256} << 20U;

    /// Creates the file, of at most `maxBytes`; `scenePath` and `sceneText` are the path and text
    /// of the server's scene file, empty without one. Throws OutputError, also if the file exists,
    /// because a recorded session cannot be repeated, or if there is no room for it; SizeLimit if
    /// `maxBytes` is too small. `report` receives the reason if the recording stops early.
    CaptureWriter(
        const std::string& path, const std::string& scenePath, const std::string& sceneText,
        std::uint64_t maxBytes, Report report);
    /// Closes the file without an end mark, unless the recording has ended.
    ~CaptureWriter() override;

    void received(Corvid::Event& event, const std::string& client) override;
    void setTime(std::optional<std::chrono::steady_clock::time_point> time) override {
        time_ = time;
    }
    void lost(const std::string& client) override;

    /// Writes buffered data to the file; call it several times a second. On failure it reports once
    /// and the recording stops.
    void flush();
    /// Writes the end mark and waits until everything is on the disk. Returns false if part of the
    /// session is missing from the file.
    bool finish();

    /// Whether the recording has stopped, which has been reported.
    [[nodiscard]] bool ended() const noexcept { return ended_; }
    /// Whether it has stopped because of its limit. Valid already while that is reported.
    [[nodiscard]] bool full() const noexcept { return full_; }
    [[nodiscard]] std::uint64_t events() const noexcept { return events_; }
    /// From the start until now, or until the recording stopped.
    [[nodiscard]] double seconds() const;

private:
    using Clock = std::chrono::steady_clock;

    /// Microseconds since the begin: of now, or of the time that is set.
    [[nodiscard]] std::uint64_t now() const;
    std::uint64_t numberOf(const std::string& client);
    void record(std::uint64_t what, const void* data, std::size_t size);
    void endWithMark(const std::string& why);
    void end(const std::string& why);
    void putEndMark();
    /// Returns errno, or 0.
    int writeWaiting();
    [[nodiscard]] bool diskHasRoom() const;

    std::string path_;
    std::uint64_t maxBytes_;
    Report report_;
    int descriptor_;
    Clock::time_point begin_ = Clock::now();
    std::optional<Clock::time_point> time_; // of the events that follow; nothing: now
    std::string waiting_;                   // complete records
    std::string body_;
    std::vector<std::byte> frame_;
    std::map<std::string, std::uint64_t> clients_; // numbers of the connected clients
    std::uint64_t last_ = 0;                       // time of the last record, in microseconds
    std::uint64_t records_ = 0;
    std::uint64_t events_ = 0;
    std::uint64_t written_ = 0;   // bytes
    std::uint64_t unchecked_ = 0; // bytes written since the last check of the disk
    bool ended_ = false;
    bool full_ = false;
};

} // namespace Show
