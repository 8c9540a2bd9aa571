#pragma once

#include <Orvel/BackendType.h>
#include <Orvel/OALBackend.h>

#include <orvel_export.h>

namespace Orvel {

/// An OALBackend that renders into memory instead of a sound device: the program pulls frames, as
/// fast as it likes, and time stands still in between. Needs no sound hardware.
///
/// The kind is registered as "loopback" when type() or registerType() is first called, so it does
/// not appear in hosts that never render offline. Parameters: "rate" in Hz, 8000 to 192000 (44100);
/// "sources", the number of emitters that can play at once (at least and by default 256).
///
/// Confined to its world's thread.
class ORVEL_EXPORT OALLoopbackBackend : public OALBackend {
public:
    static constexpr unsigned kChannels = 2;
    static constexpr unsigned kDefaultRate = 44100;

    OALLoopbackBackend(World& world, const char* params);

    /// Sample rate in Hz.
    [[nodiscard]] unsigned rate() const noexcept;

    /// Renders the next `frames` frames into `samples`, which must have room for kChannels * frames
    /// interleaved floats, left first. Full scale is 1, and louder sums are not limited. Returns
    /// false, without writing, if the back end is inert.
    bool render(float* samples, unsigned frames);

    BackendType* type() override;

    static Backend* createMethod(World& world, const char* params);
    /// Registers the kind if necessary, and returns its record.
    static BackendType* registerType();
};

} // namespace Orvel
