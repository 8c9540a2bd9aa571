#pragma once

#include <cstddef>
#include <string>

#include <orvel_export.h>

namespace Corvid {

/// Something that whole frames can be sent to: one connection, or all connections of a
/// MultiCommunicator.
class ORVEL_EXPORT Sender {
public:
    virtual ~Sender() = default;

    /// Takes a copy of one encoded frame (see docs/protocol.md) and never waits for the network.
    /// False when nobody will get it because the sender is closed. Synchronised.
    virtual bool sendFrame(const std::byte* frame, std::size_t size) = 0;

    /// Told when an event cannot be sent, with the reason, for people to read. Synchronised.
    virtual void refuseEvent(const std::string& /*reason*/) {}
};

} // namespace Corvid
