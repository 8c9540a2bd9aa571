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

/// How a back end is, as it says by Backend::state(): for monitors, for hosts that ask whether
/// anything is heard, and for people who look for a fault. What does not concern a kind stays as it
/// is here.
struct BackendState {
    /// A kind's end of the network.
    struct Network {
        bool searching = false; ///< it looks for servers
        short id = 0;           ///< by which peers know it
        /// The connections with their addresses and what waits for them (bytesWaiting), and sums.
        Corvid::MultiCommunicator::Counters counters{};
    };

    /// False if it can do nothing in its life, such as without a sound device.
    bool working = true;
    std::string device{};               ///< the sound device; empty without one
    std::size_t voicesUsed = 0;         ///< emitters that it plays or could play at once
    std::size_t voicesAllowed = 0;      ///< the limit of those; 0: none, or not known
    std::vector<int> refusedEmitters{}; ///< ids, ascending, of those that it cannot play
    std::uint64_t failures = 0;         ///< operations that have failed so far
    std::string page{};                 ///< URL of the page that it serves; empty without one
    /// What serves the page inside Backend::update(), owned by the back end; null without one.
    Corvid::PolledWebServer* webServer = nullptr;
    std::optional<Network> network{};
};

} // namespace Orvel
