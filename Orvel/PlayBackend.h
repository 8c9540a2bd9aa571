#pragma once

#include <Orvel/Backend.h>
#include <Orvel/BackendType.h>

#include <orvel_export.h>

namespace Orvel {

/// Writes a player command line to standard output for each source and each connected emitter that
/// starts to play: the kind "play". Starts no process.
///
/// The parameter "command" is the start of the line; the source's URL and " &" follow. It is read
/// each time, so a change takes effect at once. Confined to its world's thread.
class ORVEL_EXPORT PlayBackend : public Backend {
public:
    PlayBackend(World& world, const char* params);
    PlayBackend(const PlayBackend& other);
    PlayBackend& operator=(const PlayBackend&) = delete;

    void setSourceState(Source& source) override;
    void setEmitterState(Emitter& emitter) override;
    BackendType* type() override;

    // Changes that start nothing.
    void resetBackend() override {}
    void setEnabled() override {}
    void setListenerTransform() override {}
    void createSource(Source& /*source*/) override {}
    void destroySource(Source& /*source*/) override {}
    void setSourceData(Source& /*source*/) override {}
    void setSourceParam(Source& /*source*/) override {}
    void createEmitter(Emitter& /*emitter*/) override {}
    void destroyEmitter(Emitter& /*emitter*/) override {}
    void setEmitterTransform(Emitter& /*emitter*/) override {}
    void setEmitterHull(Emitter& /*emitter*/) override {}
    void setEmitterParam(Emitter& /*emitter*/) override {}
    void setEmitterConnection(Emitter& /*emitter*/) override {}

    static Backend* createMethod(World& world, const char* params);
    static BackendType _type;
};

} // namespace Orvel
