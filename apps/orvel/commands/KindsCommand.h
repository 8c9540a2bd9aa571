#pragma once

#include "commands/Command.h"

namespace OrvelTool {

/// `orvel kinds`: lists the kinds of back ends.
class KindsCommand : public Command {
public:
    explicit KindsCommand(CLI::App& parent);
    int run() override;
};

} // namespace OrvelTool
