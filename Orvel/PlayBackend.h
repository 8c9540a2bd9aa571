#pragma once

#include <Orvel/SilentBackend.h>

#include <orvel_export.h>

namespace Orvel {

/// Writes a player command line to standard output for each source and each connected emitter that
/// starts to play: the kind "play". Starts no process.
///
/// The parameter "command" is the start of the line; the source's URL and " &" follow. It is read
/// each time, so a change takes effect at once. Confined to its world's thread.
class ORVEL_EXPORT PlayBackend : public SilentBackend {
public:
    PlayBackend(World& world, const char* params);
    PlayBackend(const PlayBackend& other);
    PlayBackend& operator=(const PlayBackend&) = delete;

    void setSourceState(Source& source) override;
    void setEmitterState(Emitter& emitter) override;
    BackendType* type() override;

    static Backend* createMethod(World& world, const char* params);
    static BackendType _type;
};

} // namespace Orvel
