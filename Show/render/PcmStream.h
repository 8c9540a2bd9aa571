#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace Show {

/// Writes sound to standard output or to a FIFO as it is made, in 16-bit integers, without ever
/// waiting for the reader. What a slow reader has no room for is left out and counted. A FIFO may
/// have no reader for a time, and one after the other; each gets the header first.
///
/// The process must ignore SIGPIPE. Confined to one thread at a time.
class PcmStream {
public:
    /// What is kept for a reader, besides the pipe's own buffer, in seconds.
    static constexpr double kMaxQueued = 0.25;

    /// Whether a path names such an output: "-", or an existing FIFO.
    [[nodiscard]] static bool isStream(const std::string& path);

    /// `header`: for each reader; may be empty. Throws OutputError if it cannot be opened.
    PcmStream(const std::string& path, unsigned rate, unsigned channels, std::string header);
    PcmStream(const PcmStream&) = delete;
    PcmStream& operator=(const PcmStream&) = delete;
    ~PcmStream();

    /// Takes whole interleaved frames, and writes what the reader has room for.
    void write(std::span<const float> samples);
    /// Gives the reader the rest, for at most this time.
    void finish(std::chrono::milliseconds most);

    /// Whether the reader of standard output has gone, after which nothing more is written.
    [[nodiscard]] bool isOver() const noexcept { return over_; }
    /// Frames that a reader was too slow for.
    [[nodiscard]] std::uint64_t missed() const noexcept { return missed_; }
    [[nodiscard]] std::uint64_t clipped() const noexcept { return clipped_; }

private:
    using Clock = std::chrono::steady_clock;

    void openFifo();
    /// Whether there is a reader; a new one is given the header.
    bool findReader();
    /// Writes what can be written without waiting.
    void push();
    void loseReader();

    std::string path_;
    std::string header_;
    std::size_t frameBytes_;
    std::size_t maxQueued_; // bytes
    bool fifo_;
    int descriptor_ = -1;
    bool reading_ = false; // somebody reads
    bool over_ = false;
    std::uint64_t missed_ = 0;
    std::uint64_t clipped_ = 0;
    std::vector<std::byte> queue_;
    std::size_t written_ = 0; // of the queue
    std::vector<std::int16_t> integers_;
};

} // namespace Show
