#pragma once

#include <Orvel/CommandEvent.h>

#include <string>
#include <vector>

#include <orvel_export.h>

namespace Orvel {

/// A new emitter with its labels: CmdCreateEmitter.
class ORVEL_EXPORT CreateEmitterEvent : public EventOf<CreateEmitterEvent, CommandEvent> {
public:
    /// Limit of labels accepted from a peer.
    static constexpr unsigned kMaxLabels = kMaxTexts;

    std::vector<std::string> labels;

    static auto fields(auto& event) { return std::tie(event.labels); }
    static Corvid::EventType _type;
};

} // namespace Orvel
