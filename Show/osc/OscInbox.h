#pragma once

#include <Show/osc/OscPeer.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace Show {

/// Parses packets of Open Sound Control and delivers their messages when they are due: at once, or
/// for bundles with a time tag at that time of the system's clock; those with the same time in
/// order of arrival. Confined to one thread at a time.
class OscInbox {
public:
    using Clock = std::chrono::system_clock;
    /// Receives the bytes of one message, with its sender.
    using Take = std::function<void(std::span<const std::byte>, const OscPeer&)>;
    /// Receives a short description of an invalid packet, with its sender.
    using Report = std::function<void(const std::string&, const OscPeer&)>;
    /// Whether to stop and leave the rest for later; called between two messages, since one for all
    /// emitters may take long.
    using Stop = std::function<bool()>;

    /// Limits on messages waiting for their time.
    static constexpr std::size_t kMaxMessages = 10'000;
    static constexpr std::size_t kMaxBytes = std::size_t{16} << 20U;
    /// Limit on nested bundles.
    static constexpr int kMaxDepth = 8;

    OscInbox(Take take, Report report);

    /// Parses a packet, a message or a bundle, and delivers due messages until stopped.
    void
    add(std::span<const std::byte> packet, Clock::time_point now, const Stop& stop = {},
        const OscPeer& peer = {});
    /// Delivers due messages. Returns false if it was stopped before the end.
    bool advance(Clock::time_point now, const Stop& stop = {});
    /// When the next waiting message is due, in the past if it was left for later; empty if none
    /// waits.
    [[nodiscard]] std::optional<Clock::time_point> next() const;

private:
    struct Message {
        std::vector<std::byte> bytes;
        OscPeer peer;
    };

    void addBundle(
        std::span<const std::byte> bundle, Clock::time_point least, int depth,
        Clock::time_point now, const OscPeer& peer);
    void
    addMessage(std::span<const std::byte> message, Clock::time_point time, const OscPeer& peer);

    Take take_;
    Report report_;
    std::map<std::pair<Clock::time_point, std::uint64_t>, Message> waiting_;
    std::size_t bytes_ = 0; // of the waiting messages
    std::uint64_t count_ = 0;
};

} // namespace Show
