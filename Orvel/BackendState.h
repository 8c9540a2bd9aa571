#pragma once

#include <Corvid/MultiCommunicator.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Corvid {
class PolledWebServer;
}

namespace Orvel {

/// The state of a back end, returned by Backend::state(): for monitors, hosts and troubleshooting.
/// Fields that do not apply to a kind keep their defaults.
struct BackendState {
    /// The network endpoint of a back end.
    struct Network {
        bool searching = false; ///< it looks for servers
        short id = 0;           ///< by which peers know it
        /// The connections with their addresses and queues (bytesWaiting), and totals.
        Corvid::MultiCommunicator::Counters counters{};
    };

    /// False if it does not work, for instance without a sound device.
    bool working = true;
    std::string device{};               ///< the sound device; empty without one
    std::size_t voicesUsed = 0;         ///< emitters that it plays or could play at once
    std::size_t voicesAllowed = 0;      ///< their limit; 0: none or unknown
    std::vector<int> refusedEmitters{}; ///< ascending ids of emitters that it cannot play
    /// Ascending ids of emitters that play and wait for a voice, because others are louder.
    std::vector<int> waitingEmitters{};
    std::size_t streams = 0;    ///< sounds that are read while they play
    std::uint64_t gaps = 0;     ///< how often the data of such a sound came too late
    std::uint64_t failures = 0; ///< failed operations so far
    std::string page{};         ///< URL of its page; empty without one
    /// Serves the page inside Backend::update(); owned by the back end, null without one.
    Corvid::PolledWebServer* webServer = nullptr;
    std::optional<Network> network{};
};

} // namespace Orvel
