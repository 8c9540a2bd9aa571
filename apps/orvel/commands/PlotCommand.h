#pragma once

#include "commands/Command.h"

#include <string>

namespace OrvelTool {

/// `orvel plot`: draws a scene from above, and the levels of a rendered file.
class PlotCommand : public Command {
public:
    explicit PlotCommand(CLI::App& parent);
    int run() override;

private:
    std::string output_;
    std::string levels_; // a sound file; empty: none
};

} // namespace OrvelTool
