#pragma once

#include "commands/BackendOption.h"
#include "commands/Command.h"
#include "commands/DeskOption.h"
#include "commands/MonitorOption.h"
#include "commands/OscOption.h"
#include "commands/RenderOption.h"
#include "network/NetworkOptions.h"
#include <Show/Playback.h>
#include <Show/player/DelayedBackend.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace OrvelTool {

/// `orvel play`: plays a scene or a capture in real time through any number of back ends, local and
/// remote.
class PlayCommand : public Command {
public:
    explicit PlayCommand(CLI::App& parent);
    int run() override;

private:
    /// Reads the back ends from the command line. On wrong usage reports it and returns false.
    bool choose(std::vector<BackendOption::Choice>& choices);
    /// Adds the back ends; with --from, when the scene has reached that time. Those that play here
    /// beside servers are as late as they. Returns false if nothing would play.
    bool addAll(
        const std::vector<BackendOption::Choice>& choices, Show::Playback& playback,
        Orvel::World& world, Diagnostics& diagnostics);
    /// Adds the back end that is recorded.
    bool addFrames(
        const std::vector<BackendOption::Choice>& choices, const Show::ShowFile& file,
        Orvel::World& world, std::optional<Show::FrameSource>& frames, Diagnostics& diagnostics);
    /// The world for another back end that plays here: a later one beside servers.
    Orvel::World& worldForSound(Orvel::World& world);
    /// Returns false if another player drove a server, so that this one was not heard there, or if
    /// the recording, from `frames` unless null, is incomplete.
    bool play(
        Show::Playback& playback, Orvel::World& world, Show::FrameSource* frames,
        Show::OscInput* osc, const std::shared_ptr<Corvid::Loop>& loop, Diagnostics& diagnostics);

    BackendOption backends_;
    MonitorOption monitor_;
    DeskOption desk_;
    NetworkOptions network_;
    OscOption osc_;
    RenderOption render_;
    std::vector<std::string> servers_;
    std::vector<std::string> only_;
    std::vector<Show::DelayedBackend*> later_; // the world deletes them
    bool wait_ = false;
    bool latencyGiven_ = false;
    bool loop_ = false;
    bool status_ = false;
    bool armed_ = false;
};

} // namespace OrvelTool
