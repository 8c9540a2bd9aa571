#include "process/Output.h"

#include <Show/detail/VisibleText.h>

#include <iostream>

namespace OrvelTool {

std::ostream& standardOutput() {
    thread_local Show::VisibleStream stream(std::cout);
    return stream;
}

std::ostream& standardError() {
    thread_local Show::VisibleStream stream(std::cerr);
    stream.tie(&standardOutput()); // like std::cerr
    return stream;
}

void report(const std::string& message) {
    standardError() << "orvel: " << message << std::endl;
}

void report(const std::vector<Show::Problem>& problems) {
    for (const Show::Problem& problem : problems) {
        standardError() << problem.str() << std::endl;
    }
}

} // namespace OrvelTool
