#pragma once

#include "commands/BackendOption.h"
#include "commands/Command.h"
#include "commands/MonitorOption.h"
#include "commands/OscOption.h"
#include "network/NetworkOptions.h"
#include <Show/player/Playable.h>

#include <string>
#include <vector>

namespace OrvelTool {

/// `orvel play`: plays a scene or a capture in real time through any number of back ends, those of
/// other machines included.
class PlayCommand : public Command {
public:
    explicit PlayCommand(CLI::App& parent);
    int run() override;

private:
    /// Reads the back ends of the command line; writes what is wrong. False for wrong use.
    bool choose(std::vector<BackendOption::Choice>& choices) const;
    /// Adds the back ends, with --from when the scene has come to its time. False if nothing would
    /// play.
    bool addAll(
        const std::vector<BackendOption::Choice>& choices, Show::Player& player, Show::Stage& stage,
        LibraryMessages& messages) const;
    /// False if another player drove a server, and this one was not heard there.
    bool play(Show::Player& player, Show::Stage& stage, Show::OscServer* osc);

    BackendOption backends_;
    MonitorOption monitor_;
    NetworkOptions network_;
    OscOption osc_;
    std::vector<std::string> servers_;
    std::vector<std::string> only_;
    bool wait_ = false;
    bool loop_ = false;
};

} // namespace OrvelTool
