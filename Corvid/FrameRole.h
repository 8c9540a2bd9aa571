#pragma once

#include <cstdint>

namespace Corvid {

/// How a frame relates to the frames before it, for connections that get only the newest values:
/// see MultiCommunicator::setNewestOnly(). Immutable.
struct FrameRole {
    enum class Kind {
        Value,   ///< replaces an earlier value of the same subject and slot
        Event,   ///< is always sent, and keeps its place among the values of its subject
        Barrier, ///< is always sent, and keeps its place among all values
        Reset    ///< ends all subjects but 0: frames about them that have not left are not sent
    };
    static constexpr unsigned kSlots = 4;

    Kind kind = Kind::Barrier;
    std::uint32_t subject = 0; ///< what the frame is about; 0: the whole
    unsigned slot = 0;         ///< of a value: which one of its subject, below kSlots
};

} // namespace Corvid
