#pragma once

#include <Corvid/Socket.h>

#include <cstdint>

namespace Show {

/// The sender of a packet.
struct OscPeer {
    Corvid::Socket::Endpoint address;
    std::uint64_t connection = 0; ///< its number, from 1; 0: a sender of datagrams

    friend bool operator==(const OscPeer&, const OscPeer&) = default;
};

} // namespace Show
