#pragma once

#include <Corvid/detail/net/ClockFilter.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <utility>

namespace Corvid::detail {

/// Measures the clock of one client: when to ask, by which way, and which answers count. Sends
/// nothing itself. Confined to the loop thread.
class ClockProbe {
public:
    using Clock = std::chrono::steady_clock;

    /// `ask` asks over the connection.
    ClockProbe(std::uint64_t nonce, std::uint16_t port, std::function<void(std::uint32_t)> ask)
        : nonce_(nonce), port_(port), ask_(std::move(ask)) {}

    [[nodiscard]] std::uint64_t nonce() const { return nonce_; }
    [[nodiscard]] std::uint16_t port() const { return port_; }
    /// When to ask next.
    [[nodiscard]] Clock::time_point next() const { return next_; }
    /// Whether to ask by datagram.
    [[nodiscard]] bool byDatagram() const;
    /// The number of a new question, which is asked now.
    std::uint32_t begin(bool byDatagram);
    void askOverConnection(std::uint32_t number) const { ask_(number); }
    /// The answer to a question: when the peer received that and sent this, by its clock, and when
    /// it arrived. Returns false if it answers no open question or is impossible.
    bool answer(
        std::uint32_t number, std::int64_t received, std::int64_t sent, Clock::time_point arrived,
        bool overConnection);

    [[nodiscard]] const PeerClock& estimate() const { return estimate_; }
    /// A time of the clock that is compared.
    [[nodiscard]] static std::int64_t nanoseconds(Clock::time_point time) {
        return std::chrono::duration_cast<std::chrono::nanoseconds>(time.time_since_epoch())
            .count();
    }

private:
    struct Question {
        std::uint32_t number = 0; // 0: none, or answered
        bool byDatagram = false;
        std::int64_t sent = 0;
    };

    const std::uint64_t nonce_;
    const std::uint16_t port_;
    const std::function<void(std::uint32_t)> ask_;
    ClockFilter filter_;
    PeerClock estimate_;
    std::array<Question, 256> open_; // by number
    std::uint32_t numbers_ = 0;
    std::uint32_t unanswered_ = 0; // datagrams since the last answer to one
    Clock::time_point unansweredSince_{};
    const Clock::time_point begun_ = Clock::now();
    Clock::time_point next_ = Clock::now();
};

} // namespace Corvid::detail
