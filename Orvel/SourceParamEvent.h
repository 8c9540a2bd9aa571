#pragma once

#include <Orvel/CommandEvent.h>

#include <orvel_export.h>

namespace Orvel {

/// The parameters of a source, see Source::setParam(): CmdSetSourceParam.
class ORVEL_EXPORT SourceParamEvent : public EventOf<SourceParamEvent, CommandEvent> {
public:
    void setParam(bool loops, float factor) {
        loop = loops;
        pitch = factor;
    }

    float pitch = 1.0F;
    bool loop = false;

    static auto fields(auto& event) { return std::tie(event.pitch, event.loop); }
    static Corvid::EventType _type;
};

} // namespace Orvel
