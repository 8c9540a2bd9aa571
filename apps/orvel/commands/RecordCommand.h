#pragma once

#include "commands/ServeCommand.h"

namespace OrvelTool {

/// `orvel record`: a sound server that records its clients' changes to a capture. Plays them only
/// if a back end is given.
class RecordCommand : public ServeCommand {
public:
    explicit RecordCommand(CLI::App& parent);
};

} // namespace OrvelTool
