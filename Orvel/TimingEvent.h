#pragma once

#include <Corvid/Communicator.h>
#include <Orvel/CommandEvent.h>

#include <orvel_export.h>

namespace Orvel {

/// How well a server keeps a client's times: CmdReportTiming, from server to client, once a second,
/// and to any client that sends CmdAskTiming, about the client whose change was the latest. The
/// fields but `lead` are those of Corvid::Communicator::Timing; times in nanoseconds.
class ORVEL_EXPORT TimingEvent : public EventOf<TimingEvent, CommandEvent> {
public:
    bool ready = false;
    bool known = false;
    /// Signed, in two's complement: the client's clock minus the server's.
    unsigned long offset = 0;
    float error = 0.0F; ///< in seconds
    float drift = 0.0F;
    float driftError = 0.0F;
    float roundTrip = 0.0F; ///< in seconds
    float jitter = 0.0F;    ///< in seconds
    bool byConnection = false;
    unsigned long batches = 0;
    unsigned long lateBatches = 0;
    float worstLateness = 0.0F; ///< in seconds
    float sceneAge = 0.0F;      ///< in seconds
    float lead = 0.0F; ///< how long before they are heard the server needs starts, in seconds

    static auto fields(auto& event) {
        return std::tie(
            event.ready, event.known, event.offset, event.error, event.drift, event.driftError,
            event.roundTrip, event.jitter, event.byConnection, event.batches, event.lateBatches,
            event.worstLateness, event.sceneAge, event.lead);
    }
    static Corvid::EventType _type;

    void setTiming(const Corvid::Communicator::Timing& timing);
    [[nodiscard]] Corvid::Communicator::Timing timing() const;
};

} // namespace Orvel
