#pragma once

#include "commands/Command.h"
#include "network/NetworkOptions.h"

#include <Corvid/Communicator.h>
#include <Corvid/MultiClient.h>

#include <map>
#include <string>
#include <vector>

namespace OrvelTool {

/// `orvel servers`: lists the sound servers on the network.
class ServersCommand : public Command {
public:
    explicit ServersCommand(CLI::App& parent);
    int run() override;

private:
    using Servers = std::vector<Corvid::MultiClient::FoundServer>;

    /// By "address:port" of the server.
    using Timings = std::map<std::string, Corvid::Communicator::Timing>;

    static void writeTable(const Servers& servers);
    static void writeTimings(const Servers& servers, const Timings& timings);
    void writeJson(
        const Servers& servers, const Timings& timings, const Corvid::MultiClient& client) const;
    void explainSilence(const Corvid::MultiClient& client) const;

    NetworkOptions network_;
    bool json_ = false;
    bool timing_ = false;
};

} // namespace OrvelTool
