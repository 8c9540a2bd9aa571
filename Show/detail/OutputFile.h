#pragma once

#include <stdexcept>
#include <string>

namespace Show {

/// What could not be written, and why, in a sentence for the user.
class OutputError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Whether a path stands for standard output: "-".
bool isStandardOutput(const std::string& path);
/// The name for people of a path to write to.
std::string nameOfOutput(const std::string& path);

/// A file that comes into being whole or not at all: it is written under another name in the same
/// folder, which keep() changes into the real one, and which the destructor removes otherwise.
/// Standard output, and a path that exists and is no regular file, such as /dev/null or a pipe, are
/// streams: they are written directly.
/// Confined to one thread at a time.
class OutputFile {
public:
    enum class Unfinished {
        Removed,
        /// For what cannot be made again: the file is kept as far as it has come, and has its real
        /// name from the beginning if there is none of that name yet.
        Kept
    };

    /// Creates the file, or opens the stream. Throws OutputError.
    explicit OutputFile(const std::string& path, Unfinished unfinished = Unfinished::Removed);
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;
    ~OutputFile();

    [[nodiscard]] const std::string& path() const noexcept { return path_; }
    /// The open file, for reading and writing; it stays this object's. -1 after keep().
    [[nodiscard]] int descriptor() const noexcept { return descriptor_; }

    /// Whether what is written cannot be changed any more.
    [[nodiscard]] bool isStream() const noexcept { return stream_; }

    /// Writes a text. Throws OutputError.
    void write(const std::string& text);
    /// Closes the file and gives it its name. Throws OutputError; then nothing is left behind.
    void keep();

private:
    void removeTemporary() noexcept;

    std::string path_;
    Unfinished unfinished_;
    bool stream_ = false;
    std::string temporary_; // empty when there is none
    int descriptor_ = -1;
};

} // namespace Show
