#pragma once

#include <Orvel/CommandEvent.h>

#include <orvel_export.h>

namespace Orvel {

/// The parameters of an emitter, see Emitter::setParam(): CmdSetEmitterParam.
class ORVEL_EXPORT EmitterParamEvent : public EventOf<EmitterParamEvent, CommandEvent> {
public:
    void setParam(bool flag, float value, float linearGain) {
        paramFlag = flag;
        paramValue = value;
        gain = linearGain;
    }

    float gain = 1.0F;
    float paramValue = 0.0F;
    bool paramFlag = true;

    static auto fields(auto& event) {
        return std::tie(event.gain, event.paramValue, event.paramFlag);
    }
    static Corvid::EventType _type;
};

} // namespace Orvel
