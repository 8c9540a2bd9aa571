#pragma once

#include <Orvel/CommandEvent.h>

#include <orvel_export.h>

namespace Orvel {

/// Where the sound of an emitter is when its next state arrives: CmdSetEmitterPosition, in the
/// replay to a server with ClockEvent::kFeature.
class ORVEL_EXPORT PositionEvent : public EventOf<PositionEvent, CommandEvent> {
public:
    unsigned long position = 0; ///< nanoseconds of the sound, as if it were endless

    static auto fields(auto& event) { return std::tie(event.position); }
    static Corvid::EventType _type;
};

} // namespace Orvel
