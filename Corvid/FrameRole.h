#pragma once

#include <cstdint>

namespace Corvid {

/// Relation of a frame to earlier frames, for connections that get only the newest values: see
/// MultiCommunicator::setNewestOnly(). Immutable.
struct FrameRole {
    enum class Kind {
        Value,   ///< replaces an earlier value of the same subject and slot
        Event,   ///< always sent, in its place among the values of its subject
        Barrier, ///< always sent, in its place among all values
        Reset,   ///< drops the queued frames of all subjects but 0
        LeftOut  ///< never sent on such a connection
    };
    static constexpr unsigned kSlots = 4;

    Kind kind = Kind::Barrier;
    std::uint32_t subject = 0; ///< the part that the frame concerns; 0: the whole
    unsigned slot = 0;         ///< the index of a value within its subject, below kSlots
};

} // namespace Corvid
