#pragma once

#include <cstddef>
#include <span>
#include <string>

#include <orvel_export.h>

namespace Corvid {

/// Something that whole frames come from: one connection.
class ORVEL_EXPORT Receiver {
public:
    virtual ~Receiver() = default;

    /// Gives the next whole frame, its length field included. The bytes stay valid until the next
    /// call on this receiver. False when the peer is gone or has sent something that is no frame.
    virtual bool receiveFrame(std::span<const std::byte>& frame) = 0;

    /// Told when the last frame holds no event, with the reason, for people to read: the peer
    /// speaks another language, and its connection is about to be given up.
    virtual void refuseFrame(const std::string& reason);
};

} // namespace Corvid
