#pragma once

#include <Orvel/Backend.h>
#include <Orvel/BackendType.h>

#include <memory>

#include <orvel_export.h>

namespace Orvel {

namespace detail {
class OALDevice;
}

/// Makes the scene audible on this machine through OpenAL: the kinds "openal" and "default". Each
/// emitter is an AL source, each source an AL buffer, the hull becomes distance attenuation.
///
/// Without a sound device, or when it refuses a context, the back end stays inert for its life: it
/// is in the list and does nothing. AL errors are logged and what they concern is skipped.
///
/// Confined to its world's thread. It selects its own context before each use, so several back ends
/// may live in one process, but all of them on one thread at a time. Fetching a URL blocks.
class ORVEL_EXPORT OALBackend : public Backend {
public:
    OALBackend(World& world, const char* params);
    OALBackend(const OALBackend&) = delete;
    OALBackend& operator=(const OALBackend&) = delete;
    ~OALBackend() override;

    void resetBackend() override;
    void setEnabled() override;
    void setListenerTransform() override;
    void createSource(Source& source) override;
    void destroySource(Source& source) override;
    void setSourceData(Source& source) override;
    void setSourceParam(Source& source) override;
    void setSourceState(Source& source) override;
    void createEmitter(Emitter& emitter) override;
    void destroyEmitter(Emitter& emitter) override;
    void setEmitterTransform(Emitter& emitter) override;
    void setEmitterHull(Emitter& emitter) override;
    void setEmitterParam(Emitter& emitter) override;
    void setEmitterConnection(Emitter& emitter) override;
    void setEmitterState(Emitter& emitter) override;

    BackendType* type() override;

    /// True when the device and the context are open, so that there is something to hear.
    [[nodiscard]] bool working() const noexcept;

    /// Takes the context's pending AL error and logs it, after `message` (which may be null). True
    /// when there was one, and for an inert back end, which logs nothing.
    bool checkALError(const char* message) const;

    /// For a host after Source::setDataFromURL(): a file that ALUT reads and AL refuses, such as
    /// one with an impossible rate, leaves an AL error, for which the next operation would fail in
    /// its place. Takes it from each OpenAL back end of the source's world and logs it with the
    /// name of the file. True when there was one.
    static bool reportRefusedSound(const Source& source);

    static Backend* createMethod(World& world, const char* params);
    static BackendType _type;

protected:
    /// Renders through another device than the default one.
    OALBackend(World& world, const char* params, std::unique_ptr<detail::OALDevice> device);

    [[nodiscard]] const detail::OALDevice& device() const noexcept { return *device_; }

private:
    struct Objects;

    /// Opens device and context and makes ALUT ready; gives what to log, or null when all is well.
    const char* open();
    /// Makes the own context current; false for an inert back end.
    bool selectContext() const;
    /// Makes the own context current and gives the emitter's AL source; null when there is none.
    const unsigned int* select(const Emitter& emitter) const;

    std::unique_ptr<detail::OALDevice> device_;
    std::unique_ptr<Objects> objects_;
};

} // namespace Orvel
