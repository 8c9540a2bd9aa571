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

/// Passes each line written to a stream through visible() during its lifetime; tabs are kept.
/// Confined to the stream's thread.
class VisibleOutput : public std::streambuf {
public:
    explicit VisibleOutput(std::ostream& stream);
    VisibleOutput(const VisibleOutput&) = delete;
    VisibleOutput& operator=(const VisibleOutput&) = delete;
    ~VisibleOutput() override;

protected:
    int_type overflow(int_type character) override;
    std::streamsize xsputn(const char* text, std::streamsize size) override;
    int sync() override;

private:
    /// Writes the buffered part of the line. Returns false if the stream fails.
    bool pass();

    std::ostream& stream_;
    std::streambuf* to_;
    std::string line_;
};

} // namespace Show
