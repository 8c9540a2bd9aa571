#pragma once

#include "commands/Command.h"
#include "network/NetworkOptions.h"

#include <vector>

namespace OrvelTool {

/// `orvel doctor`: checks the machine and its network before a show, and suggests a fix for each
/// problem.
class DoctorCommand : public Command {
public:
    explicit DoctorCommand(CLI::App& parent);
    int run() override;

private:
    NetworkOptions network_;
    std::vector<unsigned short> ports_;
    bool json_ = false;
};

} // namespace OrvelTool
