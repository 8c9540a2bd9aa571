#pragma once

#include <Orvel/Backend.h>
#include <Orvel/BackendType.h>
#include <Orvel/Diagnostic.h>

#include <memory>

#include <orvel_export.h>

namespace Orvel {

namespace detail {
class OALDevice;
}

/// Plays the scene on this machine through OpenAL: the kinds "openal" and "default". Each emitter
/// is an AL source, each source an AL buffer, the hull becomes distance attenuation.
///
/// Without a sound device or context the back end stays inert: it is in the list and does nothing.
/// AL errors are logged and the operation is skipped.
///
/// Confined to its world's thread. It selects its own context before each use, so several back ends
/// may exist in one process, but must all be used by one thread at a time. Fetching a URL blocks.
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
    /// The device's name, the AL sources, the emitters that got none, and the AL errors so far.
    [[nodiscard]] BackendState state() const override;

    /// Whether the device and the context are open.
    [[nodiscard]] bool working() const noexcept;

    /// Takes the context's pending AL error and logs it, after `message` (which may be null).
    /// Returns true if there was one, and for an inert back end, which logs nothing.
    bool checkALError(const char* message) const;

    /// Call it after Source::setDataFromURL(): a file that ALUT reads and AL refuses, for instance
    /// one with an invalid sample rate, leaves an AL error, which the next operation would report.
    /// Takes the error from each OpenAL back end of the source's world and logs it with the file's
    /// name. Returns true if there was one.
    static bool reportRefusedSound(const Source& source);

    static Backend* createMethod(World& world, const char* params);
    static BackendType _type;

protected:
    /// Renders through another device than the default.
    OALBackend(World& world, const char* params, std::unique_ptr<detail::OALDevice> device);

    [[nodiscard]] const detail::OALDevice& device() const noexcept { return *device_; }

private:
    struct Objects;

    /// checkALError() for an operation on a part.
    template <class Subject>
    ORVEL_NO_EXPORT bool check(const char* message, const Subject& subject) const;
    /// The same within an operation that has called nothing else since it selected the context.
    template <class Subject>
    ORVEL_NO_EXPORT bool checkSelected(const char* message, const Subject& subject) const;
    ORVEL_NO_EXPORT void reportALError(const char* message, Diagnostic::Part part, int error) const;

    /// Opens device and context and initialises ALUT. Returns an error message, or null on success.
    const char* open();
    /// Makes this back end's context current; false for an inert back end.
    bool selectContext() const;
    /// Makes this back end's context current and returns the emitter's AL source; null if there is
    /// none.
    const unsigned int* select(const Emitter& emitter) const;

    std::unique_ptr<detail::OALDevice> device_;
    std::unique_ptr<Objects> objects_;
};

} // namespace Orvel
