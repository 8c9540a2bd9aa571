#pragma once

#include <cstddef>
#include <span>
#include <string>

#include <orvel_export.h>

namespace Corvid {

/// A source of complete frames: one connection.
class ORVEL_EXPORT Receiver {
public:
    virtual ~Receiver() = default;

    /// Returns the next complete frame, including its length field. The bytes stay valid until the
    /// next call on this receiver. Returns false if the peer is gone or has sent an invalid frame.
    virtual bool receiveFrame(std::span<const std::byte>& frame) = 0;

    /// Called when the last frame is not a valid event, with a reason for people: the connection is
    /// about to be closed.
    virtual void refuseFrame(const std::string& reason);
};

} // namespace Corvid
