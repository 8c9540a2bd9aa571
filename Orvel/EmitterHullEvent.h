#pragma once

#include <Orvel/CommandEvent.h>

#include <orvel_export.h>

namespace Orvel {

/// The extents of an emitter, in scene units: CmdSetEmitterHull.
class ORVEL_EXPORT EmitterHullEvent : public CommandEvent {
public:
    void addFields() override;
    void getFields() override;
    [[nodiscard]] const Corvid::EventType* type() const override;

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

    static Corvid::Event* create();
    static Corvid::EventType _type;
};

} // namespace Orvel
