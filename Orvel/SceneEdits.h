#pragma once

#include <Orvel/Emitter.h>
#include <Orvel/Source.h>
#include <Orvel/World.h>

#include <vector>

/// Edits of a scene whose steps must be done in a certain order.
namespace Orvel {

/// Performs the steps with the setters. Another class with these functions may use another way,
/// such as events.
struct SetterSteps {
    static void setSource(Emitter& emitter, Source* source) { emitter.setSource(source); }
    static void setState(WorldPart& part, WorldPart::State state) { part.setState(state); }
    static void setEnabled(World& world, bool enabled) { world.setEnabled(enabled); }
    static void
    setListenerTransform(World& world, const Vec3f& position, const Quaternion& rotation) {
        world.setListenerTransform(position, rotation);
    }
};

/// Connects an emitter to another source, or to none. A playing emitter starts the new sound at
/// once, and the former source continues.
template <class Steps = SetterSteps>
void reconnect(Emitter& emitter, Source* source, const Steps& steps = {}) {
    if (source == emitter.source()) {
        return;
    }
    // The state is set while it is disconnected, because it would spread to the other parts of
    // either source.
    const bool playing = source != nullptr && emitter.state() == WorldPart::PLAY;
    steps.setSource(emitter, nullptr);
    if (playing) {
        steps.setState(emitter, WorldPart::STOP);
    }
    steps.setSource(emitter, source);
    if (playing) {
        steps.setState(emitter, WorldPart::PLAY);
    }
}

/// Plays a source or an emitter from the beginning, also if it is playing.
template <class Part, class Steps = SetterSteps>
void restart(Part& part, const Steps& steps = {}) {
    if (part.state() == WorldPart::PLAY) {
        steps.setState(part, WorldPart::STOP);
    }
    steps.setState(part, WorldPart::PLAY);
}

/// Moves the listener. A disabled world stays silent, although moving the listener unmutes some
/// back ends.
template <class Steps = SetterSteps>
void moveListener(
    World& world, const Vec3f& position, const Quaternion& rotation, const Steps& steps = {}) {
    if (position == world.listenerPosition() && rotation == world.listenerRotation()) {
        return;
    }
    steps.setListenerTransform(world, position, rotation);
    if (!world.enabled()) {
        steps.setEnabled(world, false);
    }
}

/// Disconnects the emitters of a source; returns them in the order of their ids.
inline std::vector<Emitter*> disconnectAll(Source& source) {
    std::vector<Emitter*> emitters;
    for (const auto& [id, emitter] : source.connectedEmitters()) {
        emitters.push_back(emitter);
    }
    for (Emitter* emitter : emitters) {
        emitter->setSource(nullptr);
    }
    return emitters;
}

/// Destroys a source after disconnecting its emitters, because a back end cannot release a sound
/// that is in use.
inline void destroy(Source& source) {
    disconnectAll(source);
    delete &source;
}

/// Changes the sound of a source that is in use: `give(source)` sets its data while no emitter is
/// connected, because a back end could not refill it. Playing emitters start the new sound.
template <class Give>
void changeSound(Source& source, Give give) {
    const std::vector<Emitter*> emitters = disconnectAll(source);
    give(source);
    for (Emitter* emitter : emitters) {
        reconnect(*emitter, &source);
    }
}

} // namespace Orvel
