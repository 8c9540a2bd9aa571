#pragma once

#include <Orvel/Backend.h>
#include <Orvel/BackendType.h>

#include <orvel_export.h>

namespace Orvel {

/// Writes one log line for every change, for all emitters regardless of labels: the kind "log". The
/// lines are written at every log level. Confined to its world's thread.
class ORVEL_EXPORT LogBackend : public Backend {
public:
    LogBackend(World& world, const char* params);
    LogBackend(const LogBackend& other);
    LogBackend& operator=(const LogBackend&) = delete;
    ~LogBackend() override;

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
