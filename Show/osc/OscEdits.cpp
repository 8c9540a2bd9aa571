#include <Show/osc/OscEdits.h>

#include <Orvel/ClientBackend.h>
#include <Orvel/CreateEmitterEvent.h>
#include <Orvel/EmitterConnectionEvent.h>
#include <Orvel/EmitterHullEvent.h>
#include <Orvel/EmitterParamEvent.h>
#include <Orvel/SourceParamEvent.h>
#include <Orvel/TransformEvent.h>

#include <utility>

namespace Show {

OscEdits::OscEdits(Orvel::World& world, Apply apply) : world_(world), apply_(std::move(apply)) {}

void OscEdits::send(short command, int id) const {
    Orvel::CommandEvent event;
    event.address(static_cast<Orvel::Command>(command), id);
    apply_(event);
}

void OscEdits::create(int emitter, const std::vector<std::string>& labels) const {
    Orvel::CreateEmitterEvent event;
    event.address(Orvel::CmdCreateEmitter, emitter);
    event.labels = labels;
    apply_(event);
}

void OscEdits::destroy(const Orvel::Emitter& emitter) const {
    send(Orvel::CmdDestroyEmitter, emitter.id());
}

void OscEdits::move(const Orvel::Emitter& emitter, const Orvel::Vec3f& place) const {
    Orvel::TransformEvent event;
    event.address(Orvel::CmdSetEmitterTransform, emitter.id());
    event.position = place;
    event.rotation = emitter.rotation();
    apply_(event);
}

void OscEdits::rotate(const Orvel::Emitter& emitter, const Orvel::Quaternion& rotation) const {
    Orvel::TransformEvent event;
    event.address(Orvel::CmdSetEmitterTransform, emitter.id());
    event.position = emitter.position();
    event.rotation = rotation;
    apply_(event);
}

void OscEdits::setHull(const Orvel::Emitter& emitter, const Orvel::Hull& hull) const {
    Orvel::EmitterHullEvent event;
    event.address(Orvel::CmdSetEmitterHull, emitter.id());
    event.setHull(hull.maxBack, hull.maxFront, hull.minBack, hull.minFront);
    apply_(event);
}

void OscEdits::setGain(const Orvel::Emitter& emitter, float gain) const {
    Orvel::EmitterParamEvent event;
    event.address(Orvel::CmdSetEmitterParam, emitter.id());
    event.setParam(emitter.paramFlag(), emitter.paramValue(), gain);
    apply_(event);
}

void OscEdits::setValue(const Orvel::Emitter& emitter, float value) const {
    Orvel::EmitterParamEvent event;
    event.address(Orvel::CmdSetEmitterParam, emitter.id());
    event.setParam(emitter.paramFlag(), value, emitter.gain());
    apply_(event);
}

void OscEdits::setParam(const Orvel::Source& source, bool loop, float pitch) const {
    Orvel::SourceParamEvent event;
    event.address(Orvel::CmdSetSourceParam, source.id());
    event.pitch = pitch;
    event.loop = loop;
    apply_(event);
}

void OscEdits::setSource(const Orvel::Emitter& emitter, const Orvel::Source* source) const {
    Orvel::EmitterConnectionEvent event;
    event.address(Orvel::CmdSetEmitterConnection, emitter.id());
    event.sourceId = static_cast<short>(source == nullptr ? 0 : source->id());
    apply_(event);
}

void OscEdits::setState(const Orvel::Emitter& emitter, State state) const {
    send(Orvel::ClientBackend::emitterState2Command(state), emitter.id());
}

void OscEdits::setState(const Orvel::Source& source, State state) const {
    send(Orvel::ClientBackend::sourceState2Command(state), source.id());
}

void OscEdits::setEnabled(const Orvel::World& /*world*/, bool enabled) const {
    send(enabled ? Orvel::CmdEnable : Orvel::CmdDisable, 0);
}

void OscEdits::setListenerTransform(
    const Orvel::World& /*world*/, const Orvel::Vec3f& place,
    const Orvel::Quaternion& rotation) const {
    Orvel::TransformEvent event;
    event.address(Orvel::CmdSetListenerTransform, 0);
    event.position = place;
    event.rotation = rotation;
    apply_(event);
}

} // namespace Show
