#pragma once

#include <ostream>
#include <streambuf>
#include <string>
#include <string_view>

namespace Show {

/// The text with each control character as an escape such as "\n" or "\x1b", and each byte that
/// belongs to no UTF-8 character too. So are the characters that change the direction of writing.
/// Names and values come from files and peers, and a terminal obeys control characters.
std::string visible(std::string_view text);

/// Passes each line that is written to a stream through visible(), for as long as it lives; tabs
/// stay. Confined to one thread at a time, as the stream is.
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
    /// Writes what has come of the line. False if the stream takes no more.
    bool pass();

    std::ostream& stream_;
    std::streambuf* to_;
    std::string line_;
};

} // namespace Show
