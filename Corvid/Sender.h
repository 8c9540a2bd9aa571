#pragma once

#include <cstddef>
#include <string>

#include <orvel_export.h>

namespace Corvid {

/// A target for complete frames: one connection, or all connections of a MultiCommunicator.
class ORVEL_EXPORT Sender {
public:
    virtual ~Sender() = default;

    /// Copies one encoded frame (see docs/protocol.md); never waits for the network. Returns false
    /// if the sender is closed. Synchronised.
    virtual bool sendFrame(const std::byte* frame, std::size_t size) = 0;

    /// Called when an event cannot be sent, with a reason for people. Synchronised.
    virtual void refuseEvent(const std::string& /*reason*/) {}
};

} // namespace Corvid
