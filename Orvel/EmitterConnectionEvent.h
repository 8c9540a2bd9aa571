#pragma once

#include <Orvel/CommandEvent.h>

#include <orvel_export.h>

namespace Orvel {

/// The new source of an emitter: CmdSetEmitterConnection.
class ORVEL_EXPORT EmitterConnectionEvent : public EventOf<EmitterConnectionEvent, CommandEvent> {
public:
    short sourceId = 0; ///< 0: none

    static auto fields(auto& event) { return std::tie(event.sourceId); }
    static Corvid::EventType _type;
};

} // namespace Orvel
