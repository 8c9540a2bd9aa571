#include <Orvel/SilentBackend.h>

namespace Orvel {

SilentBackend::SilentBackend(World& world, const char* params) : Backend(world, params) {}

SilentBackend::SilentBackend(const SilentBackend&) = default;

void SilentBackend::resetBackend() {}
void SilentBackend::setEnabled() {}
void SilentBackend::setListenerTransform() {}
void SilentBackend::createSource(Source& /*source*/) {}
void SilentBackend::destroySource(Source& /*source*/) {}
void SilentBackend::setSourceData(Source& /*source*/) {}
void SilentBackend::setSourceParam(Source& /*source*/) {}
void SilentBackend::setSourceState(Source& /*source*/) {}
void SilentBackend::createEmitter(Emitter& /*emitter*/) {}
void SilentBackend::destroyEmitter(Emitter& /*emitter*/) {}
void SilentBackend::setEmitterTransform(Emitter& /*emitter*/) {}
void SilentBackend::setEmitterHull(Emitter& /*emitter*/) {}
void SilentBackend::setEmitterParam(Emitter& /*emitter*/) {}
void SilentBackend::setEmitterConnection(Emitter& /*emitter*/) {}
void SilentBackend::setEmitterState(Emitter& /*emitter*/) {}

BackendType* SilentBackend::type() {
    return &_type;
}

Backend* SilentBackend::createMethod(World& world, const char* params) {
    return new SilentBackend(world, params);
}

} // namespace Orvel
