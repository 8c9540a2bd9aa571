#include "process/Complaint.h"

#include <iostream>

namespace OrvelTool {

void complain(const std::string& message) {
    std::cerr << "orvel: " << message << std::endl;
}

void complain(const std::vector<Show::Problem>& problems) {
    for (const Show::Problem& problem : problems) {
        std::cerr << problem.str() << '\n';
    }
}

} // namespace OrvelTool
