#pragma once

#include <Orvel/CommandEvent.h>

#include <orvel_export.h>

namespace Orvel {

/// How long a source plays, in seconds, as a server measured it: CmdSetSourceDuration, from
/// server to client.
class ORVEL_EXPORT SourceDurationEvent : public EventOf<SourceDurationEvent, CommandEvent> {
public:
    float duration = 0.0F;

    static auto fields(auto& event) { return std::tie(event.duration); }
    static Corvid::EventType _type;
};

} // namespace Orvel
