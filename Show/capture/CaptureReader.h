#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace Show {

/// Reads a capture sequentially, in small pieces. Everything is checked before it is returned;
/// reading stops at damaged or missing data. Confined to one thread at a time.
class CaptureReader {
public:
    enum class Kind { Event, Client, Lost };
    struct Record {
        std::uint64_t time = 0; ///< microseconds since the start
        std::uint64_t client = 0;
        Kind kind = Kind::Event;
        /// For an event the frame without its length field, for a client its name. Valid until the
        /// next call.
        std::span<const std::byte> data;
    };

    /// Whether a file starts like a capture.
    [[nodiscard]] static bool isCapture(const std::string& path);
    /// Opens a capture. Returns null, with the reason in `fault`, if it cannot be read.
    [[nodiscard]] static std::unique_ptr<CaptureReader>
    open(const std::string& path, std::string& fault);

    CaptureReader(const CaptureReader&) = delete;
    CaptureReader& operator=(const CaptureReader&) = delete;

    /// The path and text of the server's scene file; empty if there was none.
    [[nodiscard]] const std::string& scenePath() const noexcept { return scenePath_; }
    [[nodiscard]] const std::string& sceneText() const noexcept { return sceneText_; }
    /// The length of the recording in microseconds, if it was completed.
    [[nodiscard]] std::optional<std::uint64_t> length() const noexcept { return length_; }

    /// Reads the next record. Returns false at the end, or at the first incomplete one.
    bool next(Record& record);
    /// After next() has returned false: whether that was before the end mark.
    [[nodiscard]] bool damaged() const noexcept { return damaged_; }
    /// Number of bytes that next() has read.
    [[nodiscard]] std::uint64_t offset() const noexcept { return offset_; }
    /// Goes back to the first record.
    void rewind();

private:
    struct Close {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };
    using File = std::unique_ptr<std::FILE, Close>;

    CaptureReader(File file, std::uint64_t size) : file_(std::move(file)), size_(size) {}
    bool readHeader(std::string& fault);
    void readEndMark();
    /// The next bytes of the file, at most `count`; valid until skip() passes them.
    std::span<const std::byte> peek(std::size_t count);
    void skip(std::size_t count);

    File file_;
    std::uint64_t size_;
    std::string scenePath_;
    std::string sceneText_;
    std::uint64_t first_ = 0; // offset of the first record
    std::optional<std::uint64_t> length_;

    std::vector<std::byte> buffer_;
    std::size_t begin_ = 0; // of the unskipped bytes in the buffer
    std::size_t end_ = 0;
    std::size_t given_ = 0; // bytes of the last record, still to be skipped
    std::uint64_t offset_ = 0;
    std::uint64_t time_ = 0;
    bool damaged_ = false;
};

} // namespace Show
