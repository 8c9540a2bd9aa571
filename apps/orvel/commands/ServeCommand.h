#pragma once

#include "commands/BackendOption.h"
#include "commands/Command.h"
#include "commands/MonitorOption.h"
#include "network/NetworkOptions.h"
#include "network/SoundServer.h"

#include <chrono>
#include <string>
#include <vector>

namespace OrvelTool {

class LiveRecording;

/// `orvel serve`: a sound server that the client back ends of other programs drive.
class ServeCommand : public Command {
public:
    explicit ServeCommand(CLI::App& parent);
    int run() override;

private:
    using Clock = std::chrono::steady_clock;

    /// Serves until it is told to stop; false if the recording had no more room.
    bool serve(SoundServer& server, LiveRecording* recording, Clock::time_point begin) const;
    void announce(const SoundServer& server) const;
    void report(const LiveRecording& recording) const;

    BackendOption backends_;
    MonitorOption monitor_;
    NetworkOptions network_;
    std::string output_; // empty: no recording
    std::string id_;
    unsigned short tcpPort_ = 0;
};

} // namespace OrvelTool
