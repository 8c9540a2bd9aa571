#pragma once

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

/// Takes packets of Open Sound Control apart and gives their messages when they are due: at once,
/// or, within bundles with a time tag, at that time of the system's clock; those of one time in the
/// order in which they came. Confined to one thread at a time.
class OscInbox {
public:
    using Clock = std::chrono::system_clock;
    /// Takes one message, its bytes as they came.
    using Take = std::function<void(std::span<const std::byte>)>;
    /// Is told in a few words of what makes no sense.
    using Complain = std::function<void(const std::string&)>;
    /// Whether to leave the rest for later; asked between two messages. One may take long: it can
    /// be for all emitters.
    using Stop = std::function<bool()>;

    /// What waits for its time at most.
    static constexpr std::size_t kMostMessages = 10'000;
    static constexpr std::size_t kMostBytes = std::size_t{16} << 20U;
    /// How deep bundles may stand within each other.
    static constexpr int kMostDepth = 8;

    OscInbox(Take take, Complain complain);

    /// Takes a packet, a message or a bundle, and gives what is due until it is stopped.
    void add(std::span<const std::byte> packet, Clock::time_point now, const Stop& stop = {});
    /// Gives what is due. False if it was stopped before the end.
    bool advance(Clock::time_point now, const Stop& stop = {});
    /// When the next message that waits is due, in the past if it was left for later; nothing if
    /// none waits.
    [[nodiscard]] std::optional<Clock::time_point> next() const;

private:
    void addBundle(
        std::span<const std::byte> bundle, Clock::time_point least, int depth,
        Clock::time_point now);
    void addMessage(std::span<const std::byte> message, Clock::time_point time);

    Take take_;
    Complain complain_;
    std::map<std::pair<Clock::time_point, std::uint64_t>, std::vector<std::byte>> waiting_;
    std::size_t bytes_ = 0; // of those
    std::uint64_t count_ = 0;
};

} // namespace Show
