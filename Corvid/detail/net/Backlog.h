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

/// The queue of a connection that lags, with only the newest of each value. A value replaces the
/// older one that is still queued, unless an event of the same subject lies between them; so a
/// value that changes often waits no longer than others, and never overtakes an event. Confined.
class Backlog {
public:
    using Classify = std::function<FrameRole(std::span<const std::byte> frame)>;

    /// Sizes in bytes.
    struct Counts {
        std::uint64_t waiting = 0; ///< not yet sent
        std::uint64_t lag = 0;     ///< the same without the replay
        std::uint64_t kept = 0;    ///< memory in use
        std::uint64_t leftOut = 0; ///< superseded frames so far
    };

    [[nodiscard]] bool empty() const { return sent_ == bytes_.size(); }
    /// For an empty backlog: of the bytes added next, `rest` belong to a frame that has been sent
    /// in part, and `replay` to the replay.
    void begin(std::uint64_t rest, std::uint64_t replay) {
        rest_ = rest;
        replayEnd_ = end() + replay;
    }
    /// Adds frames in pieces of any size.
    void add(const Classify& classify, std::span<const std::byte> bytes);

    /// The bytes to send next: all of them.
    [[nodiscard]] std::span<std::byte> next() { return std::span(bytes_).subspan(sent_); }
    /// Removes sent bytes.
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
    std::uint64_t next_ = 1;      // position of the first frame that is entirely unsent
    std::uint64_t replayEnd_ = 1; // position
    std::uint64_t leftOut_ = 0;
    std::uint64_t rest_ = 0;
    std::vector<std::byte> part_;                         // of an incomplete frame
    std::unordered_map<std::uint32_t, Positions> newest_; // of each subject's values
};

} // namespace Corvid::detail
