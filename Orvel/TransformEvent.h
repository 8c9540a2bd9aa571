#pragma once

#include <Orvel/CommandEvent.h>
#include <Orvel/Quaternion.h>
#include <Orvel/Vec3f.h>

#include <orvel_export.h>

namespace Orvel {

/// The position and rotation of the listener or an emitter: CmdSetListenerTransform,
/// CmdSetEmitterTransform.
class ORVEL_EXPORT TransformEvent : public EventOf<TransformEvent, CommandEvent> {
public:
    Vec3f position;
    Quaternion rotation;

    static auto fields(auto& event) {
        return std::tie(
            event.position.x, event.position.y, event.position.z, event.rotation.x,
            event.rotation.y, event.rotation.z, event.rotation.w);
    }
    static Corvid::EventType _type;
};

} // namespace Orvel
