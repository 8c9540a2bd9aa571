#pragma once

#include <ostream>
#include <streambuf>
#include <string>
#include <string_view>

namespace Show {

/// The text with control characters, invalid UTF-8 and characters that change the writing direction
/// replaced by escapes such as "\n" or "\x1b". Names and values come from files and peers, and a
/// terminal obeys control characters.
std::string visible(std::string_view text);

/// A stream that writes to another one, line by line, through visible(); tabs are kept. An
/// incomplete line is written when the stream is flushed or destroyed. Confined to one thread at a
/// time.
class VisibleStream : public std::ostream {
public:
    explicit VisibleStream(std::ostream& to) : std::ostream(nullptr), buffer_(to) {
        rdbuf(&buffer_); // also clears the error state
    }
    VisibleStream(const VisibleStream&) = delete;
    VisibleStream& operator=(const VisibleStream&) = delete;
    ~VisibleStream() override { buffer_.pass(); }

private:
    class Buffer : public std::streambuf {
    public:
        explicit Buffer(std::ostream& to) : to_(to) {}
        /// Writes the buffered part of the line. Returns false if the stream fails.
        bool pass();

    protected:
        int_type overflow(int_type character) override;
        std::streamsize xsputn(const char* text, std::streamsize size) override;
        int sync() override;

    private:
        std::ostream& to_;
        std::string line_;
    };

    Buffer buffer_;
};

} // namespace Show
