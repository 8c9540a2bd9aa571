#pragma once

#include <Config/ParamBag.h>

#include <AL/alc.h>

namespace Orvel::detail {

/// The device that an OALBackend renders to, and the back end's context on it. This class opens the
/// system's default device. The back end opens and closes both.
class OALDevice {
public:
    OALDevice() = default;
    OALDevice(const OALDevice&) = delete;
    OALDevice& operator=(const OALDevice&) = delete;
    virtual ~OALDevice() = default;

    /// Opens the device; null if there is none.
    virtual ALCdevice* open(const Config::ParamBag& params);
    /// The attributes of the context: pairs ended by 0, or null for none.
    [[nodiscard]] virtual const ALCint* attributes() const;

    ALCdevice* device = nullptr;
    ALCcontext* context = nullptr; // only with a device
};

} // namespace Orvel::detail
