#pragma once

#include <cstdint>

#include <orvel_export.h>

namespace Corvid {

/// An estimate of a peer's clock: its offset from this machine's, with an error bound, and its
/// drift. Times are nanoseconds of either side's monotonic clock. Immutable value.
struct ORVEL_EXPORT PeerClock {
    bool known = false;        ///< whether anything has been measured; if not, all else is 0
    std::int64_t at = 0;       ///< own time of the estimate
    std::int64_t offset = 0;   ///< the peer's clock minus this one's, at that time
    double error = 0.0;        ///< the offset is right to within this, in seconds
    double deviation = 0.0;    ///< standard deviation of the offset, as the jitter causes it
    double drift = 0.0;        ///< by how much the peer's clock runs faster, as a fraction
    double driftError = 0.0;   ///< the drift is right to within this
    double roundTrip = 0.0;    ///< the shortest of the latest measurements, in seconds
    double jitter = 0.0;       ///< by how much their mean is longer, in seconds
    std::uint64_t samples = 0; ///< measurements so far
    bool byConnection = false; ///< datagrams do not come through: measured over the connection

    /// The peer's time at an own time.
    [[nodiscard]] std::int64_t peerTime(std::int64_t own) const noexcept;
    /// The own time at a time of the peer.
    [[nodiscard]] std::int64_t ownTime(std::int64_t peer) const noexcept;
    /// The error bound at an own time, in seconds.
    [[nodiscard]] double errorAt(std::int64_t own) const noexcept;
};

} // namespace Corvid
