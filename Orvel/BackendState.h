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

    /// How a back end plays an emitter.
    enum class Hearing {
        Silent,  ///< it does not play, or not yet
        Mixed,   ///< it is heard
        Waiting, ///< it plays, and louder ones have all voices
        Loading, ///< it plays when its sound has been loaded
        Refused, ///< its sound cannot be played
        Over     ///< its sound has ended
    };
    /// How one emitter is heard.
    struct HeardEmitter {
        int id = 0;
        Hearing hearing = Hearing::Silent;
        float level = 0.0F; ///< linear, at the listener; 0 unless it is Mixed or Waiting
    };
    /// A sound device.
    enum class Device {
        None,    ///< the kind uses none, or does not say
        Opening, ///< for the first time
        Open,
        Absent ///< or lost; it is opened when it comes
    };

    /// False if it does not work, for instance without a sound device.
    bool working = true;
    std::string device{}; ///< the sound device; empty without one
    Device deviceState = Device::None;
    /// Seconds from a setter until its effect leaves the device, as measured; nothing if unknown.
    std::optional<double> latency{};
    std::size_t voicesUsed = 0;         ///< emitters that it plays or could play at once
    std::size_t voicesAllowed = 0;      ///< their limit; 0: none or unknown
    std::vector<int> refusedEmitters{}; ///< ascending ids of emitters that it cannot play
    /// Ascending ids of emitters that play and wait for a voice, because others are louder.
    std::vector<int> waitingEmitters{};
    /// All emitters, by ascending id, of kinds that account for each.
    std::vector<HeardEmitter> emitters{};
    std::size_t streams = 0;    ///< sounds that are read while they play
    std::uint64_t gaps = 0;     ///< how often the data of such a sound came too late
    std::uint64_t failures = 0; ///< failed operations so far
    std::string page{};         ///< URL of its page; empty without one
    /// Serves the page inside Backend::update(); owned by the back end, null without one.
    Corvid::PolledWebServer* webServer = nullptr;
    std::optional<Network> network{};
};

/// Names for people and programs: "mixed", "waiting" ..., "open", "absent" ...
[[nodiscard]] constexpr const char* nameOf(BackendState::Hearing hearing) noexcept {
    constexpr const char* kNames[] = {"silent", "mixed", "waiting", "loading", "refused", "over"};
    return kNames[static_cast<std::size_t>(hearing)];
}
[[nodiscard]] constexpr const char* nameOf(BackendState::Device device) noexcept {
    constexpr const char* kNames[] = {"none", "opening", "open", "absent"};
    return kNames[static_cast<std::size_t>(device)];
}

} // namespace Orvel
