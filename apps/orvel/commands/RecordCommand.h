#pragma once

#include "commands/ServeCommand.h"

namespace OrvelTool {

/// `orvel record`: a sound server that writes what clients send into a capture, and plays it only
/// if it is told to.
class RecordCommand : public ServeCommand {
public:
    explicit RecordCommand(CLI::App& parent);
};

} // namespace OrvelTool
