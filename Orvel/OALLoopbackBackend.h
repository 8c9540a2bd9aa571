#pragma once

#include <Orvel/BackendType.h>
#include <Orvel/OALBackend.h>

#include <orvel_export.h>

namespace Orvel {

/// An OALBackend that plays into the program instead of a sound device: the program pulls frames,
/// as fast as it likes, and time stands still in between. It needs no sound hardware.
///
/// The kind is registered as "loopback" when type() or registerType() is first called, so a host
/// that never renders offline does not see it. Parameters: "rate" in Hz, 8000 to 192000 (44100);
/// "sources", how many emitters can sound at once (256, the least).
///
/// Confined to its world's thread.
class ORVEL_EXPORT OALLoopbackBackend : public OALBackend {
public:
    static constexpr unsigned kChannels = 2;
    static constexpr unsigned kDefaultRate = 44100;

    OALLoopbackBackend(World& world, const char* params);

    /// Frames a second.
    [[nodiscard]] unsigned rate() const noexcept;

    /// Renders the next `frames` frames into `samples`, which has room for kChannels * frames
    /// floats, left and right in turn; full scale is 1, and louder sums are not limited. False, and
    /// nothing is written, if the back end is inert.
    bool render(float* samples, unsigned frames);

    BackendType* type() override;

    static Backend* createMethod(World& world, const char* params);
    /// Registers the kind, if it is not yet, and gives its record.
    static BackendType* registerType();
};

} // namespace Orvel
