#pragma once

#include "commands/Command.h"

namespace OrvelTool {

/// `orvel check`: reports every mistake in a scene file and in the sounds it names.
class CheckCommand : public Command {
public:
    explicit CheckCommand(CLI::App& parent);
    int run() override;
};

} // namespace OrvelTool
