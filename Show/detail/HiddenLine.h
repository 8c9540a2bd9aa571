#pragma once

#include <ostream>
#include <sstream>
#include <string>
#include <utility>

namespace Show {

/// Keeps one line that the library writes to a standard stream from the user, for as long as
/// it lives, and nothing else that is written there meanwhile; that appears when it ends. Nobody
/// else may write to the stream at the moments when it begins and ends.
class HiddenLine {
public:
    HiddenLine(std::ostream& stream, std::string line)
        : stream_(stream), line_(std::move(line)), state_(stream.rdstate()),
          shown_(stream.rdbuf(written_.rdbuf())) {}
    HiddenLine(const HiddenLine&) = delete;
    HiddenLine& operator=(const HiddenLine&) = delete;
    ~HiddenLine() {
        stream_.rdbuf(shown_);
        stream_.setstate(state_); // a new buffer makes the stream good
        for (std::string line; std::getline(written_, line);) {
            if (line != line_) {
                stream_ << line << '\n';
            }
        }
    }

private:
    std::ostream& stream_;
    std::string line_;
    std::ios_base::iostate state_;
    std::stringstream written_;
    std::streambuf* shown_;
};

} // namespace Show
