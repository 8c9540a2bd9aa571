#pragma once

#include <Orvel/CommandEvent.h>

#include <orvel_export.h>

namespace Orvel {

/// The extents of an emitter, in scene units: CmdSetEmitterHull.
class ORVEL_EXPORT EmitterHullEvent : public EventOf<EmitterHullEvent, CommandEvent> {
public:
    void setHull(float back, float front, float innerBack, float innerFront) {
        maxBack = back;
        maxFront = front;
        minBack = innerBack;
        minFront = innerFront;
    }

    float maxBack = 0.0F;
    float maxFront = 0.0F;
    float minBack = 0.0F;
    float minFront = 0.0F;

    static auto fields(auto& event) {
        return std::tie(event.maxBack, event.maxFront, event.minBack, event.minFront);
    }
    static Corvid::EventType _type;
};

} // namespace Orvel
