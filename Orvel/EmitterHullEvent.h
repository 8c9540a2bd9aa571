#pragma once

#include <Orvel/CommandEvent.h>
#include <Orvel/Hull.h>

#include <orvel_export.h>

namespace Orvel {

/// The hull of an emitter: CmdSetEmitterHull. The extents are 0 by default.
class ORVEL_EXPORT EmitterHullEvent : public EventOf<EmitterHullEvent, CommandEvent>, public Hull {
public:
    EmitterHullEvent() : Hull{0.0F, 0.0F, 0.0F, 0.0F} {}

    void setHull(const Hull& hull) { static_cast<Hull&>(*this) = hull; }
    void setHull(float back, float front, float innerBack, float innerFront) {
        setHull({back, front, innerBack, innerFront});
    }

    static auto fields(auto& event) {
        return std::tie(event.maxBack, event.maxFront, event.minBack, event.minFront);
    }
    static Corvid::EventType _type;
};

} // namespace Orvel
