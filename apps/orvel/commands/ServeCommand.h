#pragma once

#include "commands/BackendOption.h"
#include "commands/Command.h"
#include "commands/MonitorOption.h"
#include "commands/OscOption.h"
#include "commands/WaitOption.h"
#include "network/NetworkOptions.h"
#include <Show/server/SoundServer.h>

#include <chrono>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace Show {
class CaptureWriter;
class LiveRecording;
} // namespace Show

namespace OrvelTool {

class DiscoveryWatch;

/// `orvel serve`: a sound server that the client back ends of other programs drive.
class ServeCommand : public Command {
public:
    explicit ServeCommand(CLI::App& parent);
    int run() override;

protected:
    /// For a command that declares itself.
    ServeCommand() = default;
    /// `playing` says what plays it if no back end is named.
    void declareOptions(const std::string& playing);

    std::string capturePath_; // empty: nothing is recorded
    std::uint64_t maxCaptureBytes_ = UINT64_MAX;

private:
    using Clock = std::chrono::steady_clock;

    /// Serves until it is told to stop; false if the recording had no more room.
    bool serve(
        Show::SoundServer& server, Show::LiveRecording* recording, Show::CaptureWriter* capture,
        Show::OscServer* osc, Clock::time_point begin) const;
    void announce(const Show::SoundServer& server, DiscoveryWatch& discovery) const;
    /// Refuses outputs that would replace what is read, with a message.
    [[nodiscard]] bool checkOutputs(const Show::Scene& bank) const;
    /// Where results are printed: not into the recording.
    [[nodiscard]] std::ostream& results() const;
    void report(const Show::LiveRecording& recording) const;
    /// Completes the capture and tells how long it is; false if not all is in it.
    bool finish(Show::CaptureWriter& capture) const;

    BackendOption backends_;
    MonitorOption monitor_;
    NetworkOptions network_;
    OscOption osc_;
    WaitOption wait_;
    std::string output_; // empty: no recording
    std::string id_;
    unsigned short tcpPort_ = 0;
    std::vector<std::string> allowed_; // empty: all may connect
    bool keepPlayer_ = false;
};

} // namespace OrvelTool
