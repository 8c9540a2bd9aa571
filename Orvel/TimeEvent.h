#pragma once

#include <Orvel/CommandEvent.h>

#include <orvel_export.h>

namespace Orvel {

/// The time, by the client's clock, at which the following changes happen: CmdSetTime. Sent ahead
/// of the changes between two updates of the world, only to servers with ClockEvent::kFeature.
class ORVEL_EXPORT TimeEvent : public EventOf<TimeEvent, CommandEvent> {
public:
    unsigned long time = 0; ///< in nanoseconds

    static auto fields(auto& event) { return std::tie(event.time); }
    static Corvid::EventType _type;
};

} // namespace Orvel
