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

/// Reads a capture from front to back, a little at a time. Everything is checked before it is
/// given; what is damaged or missing ends it. Confined to one thread at a time.
class CaptureReader {
public:
    enum class Kind { Event, Client, Lost };
    struct Record {
        std::uint64_t time = 0; ///< microseconds since the beginning
        std::uint64_t client = 0;
        Kind kind = Kind::Event;
        /// Of an event the frame without its length field, of a client the name. Valid until the
        /// next call.
        std::span<const std::byte> data;
    };

    /// Whether a file begins like a capture.
    [[nodiscard]] static bool isCapture(const std::string& path);
    /// Opens a capture; null, and `fault` says why, if there is none that can be read.
    [[nodiscard]] static std::unique_ptr<CaptureReader>
    open(const std::string& path, std::string& fault);

    CaptureReader(const CaptureReader&) = delete;
    CaptureReader& operator=(const CaptureReader&) = delete;

    /// The path of the scene file that had the sources, and its text; empty if there was none.
    [[nodiscard]] const std::string& scenePath() const noexcept { return scenePath_; }
    [[nodiscard]] const std::string& sceneText() const noexcept { return sceneText_; }
    /// How long was recorded, in microseconds, if the file ends as it should.
    [[nodiscard]] std::optional<std::uint64_t> length() const noexcept { return length_; }

    /// The next record; false at the end, or at the first that is not whole.
    bool next(Record& record);
    /// Once next() has given false: whether that was before the end mark.
    [[nodiscard]] bool damaged() const noexcept { return damaged_; }
    /// How many bytes of the file next() has gone through.
    [[nodiscard]] std::uint64_t offset() const noexcept { return offset_; }
    /// Begins again with the first record.
    void rewind();

private:
    struct Close {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };
    using File = std::unique_ptr<std::FILE, Close>;

    CaptureReader(File file, std::uint64_t size) : file_(std::move(file)), size_(size) {}
    bool readHeader(std::string& fault);
    void readEndMark();
    /// The next bytes of the file, at most `count`; they stay until skip() is over them.
    std::span<const std::byte> peek(std::size_t count);
    void skip(std::size_t count);

    File file_;
    std::uint64_t size_;
    std::string scenePath_;
    std::string sceneText_;
    std::uint64_t first_ = 0; // where the records begin
    std::optional<std::uint64_t> length_;

    std::vector<std::byte> buffer_;
    std::size_t begin_ = 0; // of what is not skipped yet in the buffer
    std::size_t end_ = 0;
    std::size_t given_ = 0; // bytes of the last record, to be skipped
    std::uint64_t offset_ = 0;
    std::uint64_t time_ = 0;
    bool damaged_ = false;
};

} // namespace Show
