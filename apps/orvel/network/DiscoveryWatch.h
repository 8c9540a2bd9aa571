#pragma once

#include <Corvid/MultiServer.h>

#include <chrono>
#include <string>

namespace OrvelTool {

/// Says where clients find a server, or why they cannot and what to do. The server must outlive it.
/// Confined to one thread at a time.
class DiscoveryWatch {
public:
    explicit DiscoveryWatch(const Corvid::MultiServer& server) : server_(server) {}

    /// How it is now, as half a sentence. After the server's first turn.
    std::string describe();
    /// The same, as a sentence, if it has changed since the last call; empty if it has not. To be
    /// called often; it looks once a second.
    std::string look(std::chrono::steady_clock::time_point now);

private:
    const Corvid::MultiServer& server_;
    std::string last_;
    std::chrono::steady_clock::time_point next_;
};

} // namespace OrvelTool
