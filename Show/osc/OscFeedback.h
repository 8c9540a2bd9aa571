#pragma once

#include <Show/osc/OscPeer.h>
#include <Show/osc/OscScene.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Show {

/// Sends the values of a scene that change to subscribers, except to the one that caused a change:
/// the latest of each value, at most 50 times a second. Compares all values, so it costs nothing
/// without subscribers. The scene must outlive it. Confined to the world's thread.
class OscFeedback {
public:
    using Clock = std::chrono::steady_clock;
    using Send = std::function<void(const OscPeer& receiver, std::span<const OscAnswer> answers)>;

    static constexpr std::size_t kMaxSubscribers = 16;
    static constexpr std::chrono::milliseconds kPeriod{20};
    /// A subscription over UDP ends after this time unless it is renewed.
    static constexpr std::chrono::seconds kLease{60};

    OscFeedback(OscScene& scene, Send send) : scene_(scene), send_(std::move(send)) {}

    /// Adds a subscriber until `end`, or renews its subscription. Returns false if there are
    /// kMaxSubscribers others.
    bool add(const OscPeer& peer, Clock::time_point end);
    void remove(const OscPeer& peer);

    /// A message of this sender is applied between begin() and end(); touch() comes before each
    /// change of a part.
    void begin(const OscPeer& sender);
    void touch(OscScene::PartKind kind, int id);
    void end();

    /// When to call send() again; Clock::time_point::max() without subscribers.
    [[nodiscard]] Clock::time_point next() const;
    /// Sends changes, if it is time.
    void send(Clock::time_point now);

private:
    struct Subscriber {
        OscPeer peer;
        Clock::time_point end;
    };
    struct Known {
        OscValues values;
        std::uint64_t round; ///< of the latest comparison
    };
    struct Cause {
        OscPeer peer;
        OscValues values; ///< as set by this peer
    };

    OscScene& scene_;
    Send send_;
    std::vector<Subscriber> subscribers_;
    std::unordered_map<OscScene::Key, Known> known_;
    std::unordered_map<OscScene::Key, Cause> causes_; // since the latest comparison
    std::uint64_t round_ = 0;
    Clock::time_point next_{};
    std::optional<OscPeer> sender_; // of the message being applied, if it is a subscriber
    std::vector<std::pair<OscScene::PartKind, int>> touched_;
    std::unordered_map<OscScene::Key, OscValues> before_; // the values of the touched parts
};

} // namespace Show
