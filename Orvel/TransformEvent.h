#pragma once

#include <Orvel/CommandEvent.h>
#include <Orvel/Quaternion.h>
#include <Orvel/Vec3f.h>

#include <orvel_export.h>

namespace Orvel {

/// Where the listener or an emitter stands and how it is turned: CmdSetListenerTransform,
/// CmdSetEmitterTransform.
class ORVEL_EXPORT TransformEvent : public CommandEvent {
public:
    void addFields() override;
    void getFields() override;
    [[nodiscard]] const Corvid::EventType* type() const override;

    Vec3f position;
    Quaternion rotation;

    static Corvid::Event* create();
    static Corvid::EventType _type;
};

} // namespace Orvel
