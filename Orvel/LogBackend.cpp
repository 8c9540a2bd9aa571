#include <Orvel/LogBackend.h>

#include <Orvel/Emitter.h>
#include <Orvel/Source.h>
#include <Orvel/World.h>
#include <Orvel/detail/LogLine.h>

namespace Orvel {

namespace {

const char* stateName(WorldPart::State state) {
    switch (state) {
    case WorldPart::PLAY:
        return "play";
    case WorldPart::PAUSE:
        return "pause";
    case WorldPart::STOP:
        return "stop";
    default:
        return "unknown";
    }
}

/// printf's %f takes a double.
double number(float value) {
    return static_cast<double>(value);
}

} // namespace

LogBackend::LogBackend(World& world, const char* params) : Backend(world, params) {
    ORVEL_LOG(Log, "LogBackend: create backend\n");
}

LogBackend::LogBackend(const LogBackend& other) : Backend(other) {
    ORVEL_LOG(Log, "LogBackend: copy backend\n");
}

LogBackend::~LogBackend() {
    ORVEL_LOG(Log, "LogBackend: delete backend\n");
}

void LogBackend::resetBackend() {
    ORVEL_LOG(Log, "LogBackend: resetBackend\n");
}

void LogBackend::setEnabled() {
    ORVEL_LOG(Log, "LogBackend: setEnabled\n");
}

void LogBackend::setListenerTransform() {
    const Vec3f& p = world().listenerPosition();
    ORVEL_LOG(
        Log, "LogBackend: setListenerTransform(%f, %f, %f)\n", number(p.x), number(p.y),
        number(p.z));
}

void LogBackend::createSource(Source& /*source*/) {
    ORVEL_LOG(Log, "LogBackend: createSource\n");
}

void LogBackend::destroySource(Source& /*source*/) {
    ORVEL_LOG(Log, "LogBackend: destroySource\n");
}

void LogBackend::setSourceData(Source& /*source*/) {
    ORVEL_LOG(Log, "LogBackend: setSourceData\n");
}

void LogBackend::setSourceParam(Source& /*source*/) {
    ORVEL_LOG(Log, "LogBackend: setSourceParam\n");
}

void LogBackend::setSourceState(Source& source) {
    ORVEL_LOG(Log, "LogBackend: setSourceState: %s\n", stateName(source.state()));
}

void LogBackend::createEmitter(Emitter& /*emitter*/) {
    ORVEL_LOG(Log, "LogBackend: createEmitter\n");
}

void LogBackend::destroyEmitter(Emitter& /*emitter*/) {
    ORVEL_LOG(Log, "LogBackend: destroyEmitter\n");
}

void LogBackend::setEmitterTransform(Emitter& emitter) {
    const Vec3f& p = emitter.position();
    ORVEL_LOG(
        Log, "LogBackend: setEmitterTransform(%f, %f, %f)\n", number(p.x), number(p.y),
        number(p.z));
}

void LogBackend::setEmitterHull(Emitter& emitter) {
    const Hull& hull = emitter.hull();
    ORVEL_LOG(
        Log, "LogBackend: setEmitterHull(maxBack=%f, maxFront=%f, minBack=%f, minFront=%f)\n",
        number(hull.maxBack), number(hull.maxFront), number(hull.minBack), number(hull.minFront));
}

void LogBackend::setEmitterParam(Emitter& /*emitter*/) {
    ORVEL_LOG(Log, "LogBackend: setEmitterParam\n");
}

void LogBackend::setEmitterConnection(Emitter& /*emitter*/) {
    ORVEL_LOG(Log, "LogBackend: setEmitterConnection\n");
}

void LogBackend::setEmitterState(Emitter& emitter) {
    ORVEL_LOG(Log, "LogBackend: setEmitterState: %s\n", stateName(emitter.state()));
}

BackendType* LogBackend::type() {
    return &_type;
}

Backend* LogBackend::createMethod(World& world, const char* params) {
    return new LogBackend(world, params);
}

} // namespace Orvel
