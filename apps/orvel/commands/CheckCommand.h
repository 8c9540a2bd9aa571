#pragma once

#include "commands/Command.h"

#include <string>
#include <vector>

namespace OrvelTool {

/// `orvel check`: reports every mistake in scene files and in the sounds they name, and warns of
/// sounds that will not be heard.
class CheckCommand : public Command {
public:
    explicit CheckCommand(CLI::App& parent);
    int run() override;

private:
    [[nodiscard]] bool check(const std::string& path) const;

    std::vector<std::string> paths_;
    bool strict_ = false;
};

} // namespace OrvelTool
