#pragma once

#include "commands/BackendOption.h"
#include "commands/Command.h"
#include "commands/MonitorOption.h"
#include "commands/OscOption.h"
#include "commands/RenderOption.h"
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

/// `orvel serve`: a sound server, driven by the client back ends of other programs.
class ServeCommand : public Command {
public:
    explicit ServeCommand(CLI::App& parent);
    int run() override;

protected:
    /// For derived commands, which declare themselves.
    ServeCommand() = default;
    /// `playing` describes the default back end in --help.
    void declareOptions(const std::string& playing);

    std::string capturePath_; // empty: no capture
    std::uint64_t maxCaptureBytes_ = UINT64_MAX;

private:
    using Clock = std::chrono::steady_clock;

    /// Serves until it is stopped. Returns false if the recording is full.
    bool serve(
        Show::SoundServer& server, Show::LiveRecording* recording, Show::CaptureWriter* capture,
        Show::OscInput* osc, Clock::time_point begin, Diagnostics& diagnostics);
    void announce(const Show::SoundServer& server, DiscoveryWatch& discovery) const;
    /// Refuses outputs that would overwrite inputs, and reports it.
    [[nodiscard]] bool checkOutputs(const Show::ShowFile& file) const;
    /// Completes the capture and prints its length. Returns false if it is incomplete.
    bool finish(Show::CaptureWriter& capture) const;

    BackendOption backends_;
    MonitorOption monitor_;
    NetworkOptions network_;
    OscOption osc_;
    RenderOption render_;
    WaitOption wait_;
    std::string id_;
    unsigned short tcpPort_ = 0;
    double hold_ = 0.0;                // in seconds
    double delay_ = 0.0;               // in milliseconds
    double gain_ = 0.0;                // in decibels
    double skew_ = 0.0;                // in millionths
    std::vector<std::string> allowed_; // empty: any address
    bool keepPlayer_ = false;
};

} // namespace OrvelTool
