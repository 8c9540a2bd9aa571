#pragma once

#include <Orvel/Emitter.h>
#include <Orvel/Source.h>
#include <Orvel/World.h>

#include <vector>

/// Edits of a scene whose steps need a certain order.
namespace Orvel {

/// Makes each step of an edit with the setter. Another class with these functions makes them in
/// another way, such as by events.
struct SetterSteps {
    static void setSource(Emitter& emitter, Source* source) { emitter.setSource(source); }
    static void setState(WorldPart& part, WorldPart::State state) { part.setState(state); }
    static void setEnabled(World& world, bool enabled) { world.setEnabled(enabled); }
    static void
    setListenerTransform(World& world, const Vec3f& position, const Quaternion& rotation) {
        world.setListenerTransform(position, rotation);
    }
};

/// Connects an emitter to another source, or to none. One that plays begins the new sound at once,
/// and its former source plays on.
template <class Steps = SetterSteps>
void reconnect(Emitter& emitter, Source* source, const Steps& steps = {}) {
    if (source == emitter.source()) {
        return;
    }
    // The state is set anew while nothing is connected: it would spread to what else plays either
    // source.
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

/// Plays a source or an emitter from the beginning, also if it plays already.
template <class Part, class Steps = SetterSteps>
void restart(Part& part, const Steps& steps = {}) {
    if (part.state() == WorldPart::PLAY) {
        steps.setState(part, WorldPart::STOP);
    }
    steps.setState(part, WorldPart::PLAY);
}

/// Moves the listener. A world that is disabled stays silent, although some back ends hear again
/// when the listener moves.
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

/// Disconnects the emitters of a source, which are returned in the order of their ids.
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

/// Destroys a source after disconnecting its emitters: a back end cannot drop a sound that
/// something still holds.
inline void destroy(Source& source) {
    disconnectAll(source);
    delete &source;
}

/// Gives a source that is in use another sound: `give(source)` sets its data while no emitter holds
/// it, which a back end could not refill. Emitters that play begin the new sound.
template <class Give>
void changeSound(Source& source, Give give) {
    const std::vector<Emitter*> emitters = disconnectAll(source);
    give(source);
    for (Emitter* emitter : emitters) {
        reconnect(*emitter, &source);
    }
}

} // namespace Orvel
