#pragma once

#include <stdexcept>
#include <string>

namespace Show {

/// An output error, as a sentence for the user.
class OutputError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Whether a path means standard output: "-".
bool isStandardOutput(const std::string& path);
/// The name of an output path for messages.
std::string nameOfOutput(const std::string& path);

/// A file that is created completely or not at all: it is written under another name in the same
/// folder, renamed by keep(), and otherwise removed by the destructor. Standard output, and an
/// existing path that is not a regular file, such as /dev/null or a pipe, are streams and written
/// directly.
/// Confined to one thread at a time.
class OutputFile {
public:
    enum class Unfinished {
        Removed,
        /// For data that cannot be recreated: an incomplete file is kept, and has its final name
        /// from the beginning unless that name exists.
        Kept
    };

    /// Creates the file, or opens the stream. Throws OutputError.
    explicit OutputFile(const std::string& path, Unfinished unfinished = Unfinished::Removed);
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;
    ~OutputFile();

    [[nodiscard]] const std::string& path() const noexcept { return path_; }
    /// The open file, for reading and writing; owned by this object. -1 after keep().
    [[nodiscard]] int descriptor() const noexcept { return descriptor_; }

    /// Whether written data cannot be changed any more.
    [[nodiscard]] bool isStream() const noexcept { return stream_; }

    /// Writes a text. Throws OutputError.
    void write(const std::string& text);
    /// Closes the file and gives it its final name. On failure throws OutputError and leaves
    /// nothing behind.
    void keep();

private:
    void removeTemporary() noexcept;

    std::string path_;
    Unfinished unfinished_;
    bool stream_ = false;
    std::string temporary_; // empty if there is none
    int descriptor_ = -1;
};

} // namespace Show
