#pragma once

#include <Corvid/FrameRole.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <unordered_map>
#include <vector>

namespace Corvid::detail {

/// Frames for a connection that lags, with only the newest of each value. A value takes the place
/// of the older one that still waits, unless an event of the same subject lies between them; so a
/// value that changes often waits no longer than others, and never overtakes an event. Confined.
class Backlog {
public:
    using Classify = std::function<FrameRole(std::span<const std::byte> frame)>;

    /// Sizes in bytes.
    struct Counts {
        std::uint64_t waiting = 0; ///< not yet sent
        std::uint64_t lag = 0;     ///< the same without what belongs to the replay
        std::uint64_t kept = 0;    ///< memory in use
        std::uint64_t leftOut = 0; ///< frames that were superseded, so far
    };

    [[nodiscard]] bool empty() const { return sent_ == bytes_.size(); }
    /// While it is empty: of the bytes that are added next, so many are the rest of a frame of
    /// which the beginning has been sent, and so many belong to the replay.
    void begin(std::uint64_t rest, std::uint64_t replay) {
        rest_ = rest;
        replayEnd_ = end() + replay;
    }
    /// Takes frames in pieces of any size.
    void add(const Classify& classify, std::span<const std::byte> bytes);

    /// What is to be sent next: all of it.
    [[nodiscard]] std::span<std::byte> next() { return std::span(bytes_).subspan(sent_); }
    /// Forgets what has been sent.
    void advance(std::size_t size);

    [[nodiscard]] Counts counts() const;

private:
    using Positions = std::array<std::uint64_t, FrameRole::kSlots>; // 0: none

    void addFrame(const Classify& classify, std::span<const std::byte> frame);
    void reset(const Classify& classify);
    [[nodiscard]] std::uint64_t end() const { return begin_ + bytes_.size(); }
    [[nodiscard]] std::span<std::byte> frameAt(std::uint64_t position);

    std::vector<std::byte> bytes_; // the first of them is at position begin_
    std::uint64_t begin_ = 1;
    std::size_t sent_ = 0;
    std::uint64_t next_ = 1;      // position of the first frame of which nothing has been sent
    std::uint64_t replayEnd_ = 1; // position
    std::uint64_t leftOut_ = 0;
    std::uint64_t rest_ = 0;
    std::vector<std::byte> part_;                         // of a frame that has not come whole yet
    std::unordered_map<std::uint32_t, Positions> newest_; // of each subject's values
};

} // namespace Corvid::detail
