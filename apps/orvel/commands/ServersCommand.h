#pragma once

#include "commands/Command.h"
#include "network/NetworkOptions.h"

#include <Corvid/MultiClient.h>

#include <vector>

namespace OrvelTool {

/// `orvel servers`: lists the sound servers on the network.
class ServersCommand : public Command {
public:
    explicit ServersCommand(CLI::App& parent);
    int run() override;

private:
    using Servers = std::vector<Corvid::MultiClient::FoundServer>;

    static void writeTable(const Servers& servers);
    void writeJson(const Servers& servers, const Corvid::MultiClient& client) const;
    void explainSilence(const Corvid::MultiClient& client) const;

    NetworkOptions network_;
    bool json_ = false;
};

} // namespace OrvelTool
