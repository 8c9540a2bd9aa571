#pragma once

#include <Orvel/CommandEvent.h>

#include <orvel_export.h>

namespace Orvel {

/// The duration of a source in seconds, as measured by a server: CmdSetSourceDuration, from server
/// to client.
class ORVEL_EXPORT SourceDurationEvent : public EventOf<SourceDurationEvent, CommandEvent> {
public:
    float duration = 0.0F;

    static auto fields(auto& event) { return std::tie(event.duration); }
    static Corvid::EventType _type;
};

} // namespace Orvel
