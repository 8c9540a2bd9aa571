#include "process/Output.h"

#include <Show/detail/VisibleText.h>

#include <iostream>
#include <sys/ioctl.h>
#include <unistd.h>

namespace OrvelTool {

namespace {

bool statusShown = false;

/// The beginning of a text, of up to that number of characters.
std::string_view beginning(std::string_view text, std::size_t characters) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        if ((static_cast<unsigned char>(text[i]) & 0xC0U) != 0x80U && characters-- == 0) {
            return text.substr(0, i);
        }
    }
    return text;
}

} // namespace

std::ostream& standardOutput() {
    thread_local Show::VisibleStream stream(std::cout);
    return stream;
}

std::ostream& standardError() {
    thread_local Show::VisibleStream stream(std::cerr);
    stream.tie(&standardOutput()); // like std::cerr
    return stream;
}

void showStatus(const std::string& line) {
    winsize size{};
    if ((line.empty() && !statusShown) || isatty(STDERR_FILENO) != 1) {
        return;
    }
    // A longer line would wrap, and stay.
    const bool known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
    std::cerr << "\r\033[K" << beginning(Show::visible(line), known ? size.ws_col - 1U : 79U)
              << std::flush;
    statusShown = !line.empty();
}

void report(const std::string& message) {
    showStatus("");
    standardError() << "orvel: " << message << std::endl;
}

void report(const std::vector<Show::Problem>& problems) {
    for (const Show::Problem& problem : problems) {
        standardError() << problem.str() << std::endl;
    }
}

} // namespace OrvelTool
