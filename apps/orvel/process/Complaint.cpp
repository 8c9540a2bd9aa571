#include "process/Complaint.h"

#include <iostream>

namespace OrvelTool {

void complain(const std::string& message) {
    std::cerr << "orvel: " << message << std::endl;
}

} // namespace OrvelTool
