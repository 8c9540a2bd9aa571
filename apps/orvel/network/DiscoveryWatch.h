#pragma once

#include <Corvid/MultiServer.h>

#include <chrono>
#include <string>

namespace OrvelTool {

/// Describes how clients can find a server, or why they cannot and the remedy. The server must
/// outlive it. Confined to one thread at a time.
class DiscoveryWatch {
public:
    explicit DiscoveryWatch(const Corvid::MultiServer& server) : server_(server) {}

    /// The current state, as a clause. Call it after the server has been served once.
    std::string describe();
    /// The state as a sentence if it has changed since the last call, otherwise empty. Checks once
    /// a second; call it often.
    std::string look(std::chrono::steady_clock::time_point now);

private:
    const Corvid::MultiServer& server_;
    std::string last_;
    std::chrono::steady_clock::time_point next_;
};

} // namespace OrvelTool
