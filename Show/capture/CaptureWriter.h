#pragma once

#include <Show/detail/Report.h>
#include <Show/server/EventTap.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace Show {

/// Writes what reaches a sound server into a capture, with the time since the writer was made. The
/// file grows as it goes and is of use at any moment. It ends, with a report, before it exceeds
/// its limit and before the disk is full: clients decide how much there is to record. Confined to
/// one thread at a time.
class CaptureWriter : public EventTap {
public:
    /// The least that stays free on the disk: this many bytes, or a twentieth of a small disk.
    static constexpr std::uint64_t kMinFreeBytes = std::uint64_t{256} << 20U;

    /// Creates the file, of at most `maxBytes`; `scenePath` and `sceneText` are of the file that
    /// has the server's sources, empty without one. Throws OutputError, also if there is such a
    /// file, a session that was recorded cannot be had again, and if there is no room for it.
    /// `report` takes why the recording ends early.
    CaptureWriter(
        const std::string& path, const std::string& scenePath, const std::string& sceneText,
        std::uint64_t maxBytes, Report report);
    /// Closes the file without an end mark, unless the recording has ended.
    ~CaptureWriter() override;

    void received(Corvid::Event& event, const std::string& client) override;
    void lost(const std::string& client) override;

    /// Hands what has come to the system; to be called several times a second. When that fails it
    /// says so, once, and nothing more is written.
    void flush();
    /// Writes the end mark, and waits until all is on the disk. False if not all of the session is
    /// in the file.
    bool finish();

    /// Whether nothing more is written, which has been reported.
    [[nodiscard]] bool ended() const noexcept { return ended_; }
    [[nodiscard]] std::uint64_t events() const noexcept { return events_; }
    /// From the beginning to now, or to the end of the recording.
    [[nodiscard]] double seconds() const;

private:
    using Clock = std::chrono::steady_clock;

    [[nodiscard]] std::uint64_t now() const;
    std::uint64_t numberOf(const std::string& client);
    void record(std::uint64_t what, const void* data, std::size_t size);
    void endWithMark(const std::string& why);
    void end(const std::string& why);
    void putEndMark();
    /// Gives the error, or 0.
    int writeWaiting();
    [[nodiscard]] bool diskHasRoom() const;

    std::string path_;
    std::uint64_t maxBytes_;
    Report report_;
    int descriptor_;
    Clock::time_point begin_ = Clock::now();
    std::string waiting_; // whole records for the file
    std::string body_;
    std::vector<std::byte> frame_;
    std::map<std::string, std::uint64_t> clients_; // numbers of those that are connected
    std::uint64_t last_ = 0;                       // time of the last record, in microseconds
    std::uint64_t records_ = 0;
    std::uint64_t events_ = 0;
    std::uint64_t written_ = 0;   // bytes
    std::uint64_t unchecked_ = 0; // bytes of those since the last look at the disk
    bool ended_ = false;
};

} // namespace Show
