#pragma once

#include "commands/Command.h"
#include "network/NetworkOptions.h"

#include <Corvid/Communicator.h>
#include <Corvid/MultiClient.h>
#include <Orvel/DifferencesEvent.h>

#include <map>
#include <optional>
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

    /// What a server has answered over a connection.
    struct Answer {
        bool cannotVerify = false; ///< its release is too old
        std::optional<Corvid::Communicator::Timing> timing;
        std::optional<Orvel::DifferencesEvent> differences;
    };
    /// By "address:port" of the server.
    using Answers = std::map<std::string, Answer>;

    static Answer answerOf(const Answers& answers, const Corvid::MultiClient::FoundServer& server);
    static void writeTable(const Servers& servers);
    static void writeTimings(const Servers& servers, const Answers& answers);
    static void writeDifferences(const Servers& servers, const Answers& answers);
    void writeJson(
        const Servers& servers, const Answers& answers, const Corvid::MultiClient& client) const;
    void explainSilence(const Corvid::MultiClient& client) const;

    NetworkOptions network_;
    bool json_ = false;
    bool timing_ = false;
    bool verify_ = false;
};

} // namespace OrvelTool
