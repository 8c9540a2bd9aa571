#pragma once

#include <Orvel/CommandEvent.h>

#include <orvel_export.h>

namespace Orvel {

/// The parameters of an emitter, see Emitter::setParam(): CmdSetEmitterParam.
class ORVEL_EXPORT EmitterParamEvent : public CommandEvent {
public:
    void addFields() override;
    void getFields() override;
    [[nodiscard]] const Corvid::EventType* type() const override;

    void setParam(bool flag, float value, float linearGain) {
        paramFlag = flag;
        paramValue = value;
        gain = linearGain;
    }

    float gain = 1.0F;
    float paramValue = 0.0F;
    bool paramFlag = true;

    static Corvid::Event* create();
    static Corvid::EventType _type;
};

} // namespace Orvel
