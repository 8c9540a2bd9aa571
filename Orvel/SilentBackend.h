#pragma once

#include <Orvel/Backend.h>
#include <Orvel/BackendType.h>

#include <orvel_export.h>

namespace Orvel {

/// Does nothing for any change: the kind "silent" and the smallest complete back end. A host may
/// derive its own kinds from it, to override only the operations that they need. Confined to its
/// world's thread.
class ORVEL_EXPORT SilentBackend : public Backend {
public:
    SilentBackend(World& world, const char* params);
    SilentBackend(const SilentBackend& other);
    SilentBackend& operator=(const SilentBackend&) = delete;

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

    static Backend* createMethod(World& world, const char* params);
    static BackendType _type;
};

} // namespace Orvel
