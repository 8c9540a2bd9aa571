#pragma once

#include "Command.h"
#include "LoadedScene.h"
#include "Stage.h"

#include <string>
#include <vector>

namespace OrvelTool {

/// `orvel play`: plays a scene in real time through any number of back ends.
class PlayCommand : public Command {
public:
    explicit PlayCommand(CLI::App& parent);
    int run() override;

private:
    struct Choice {
        std::string kind;
        std::string params;
    };

    /// Reads the back ends of the command line; writes what is wrong. False for wrong use.
    bool choose(std::vector<Choice>& choices) const;
    /// False, after a message, if nothing would play.
    bool addBackends(Stage& stage, LibraryMessages& messages, const std::vector<Choice>& choices);
    void play(const LoadedScene& loaded, Stage& stage);

    std::vector<std::string> backends_;
    bool loop_ = false;
};

} // namespace OrvelTool
