#pragma once

#include "commands/Command.h"

#include <string>

namespace OrvelTool {

/// `orvel hrtf`: lists the data sets for headphones, and installs one from a SOFA file.
class HrtfCommand : public Command {
public:
    explicit HrtfCommand(CLI::App& parent);
    int run() override;

private:
    int install() const;

    std::string sofa_;
    std::string name_;
};

} // namespace OrvelTool
