#pragma once

#include <Orvel/CommandEvent.h>

#include <orvel_export.h>

namespace Orvel {

/// How a server relates a client's times to its own clock. CmdOfferClock, from a client with a
/// latency: `nonce` and `port` are Corvid::Communicator::ClockOffer's, `latency` is the time from a
/// change to its effect on all servers, and `system` says that times are those of the system's
/// clock, which others keep right. CmdAskClock, from server to client, with a `number`, and
/// CmdAnswerClock, with that number: a measurement over the connection. Fields that a command does
/// not use are 0.
class ORVEL_EXPORT ClockEvent : public EventOf<ClockEvent, CommandEvent> {
public:
    /// Flag for Corvid::MultiCommunicator::setFeatures() of a server that applies changes at their
    /// times.
    static constexpr std::uint16_t kFeature = 2;

    unsigned long nonce = 0;
    unsigned int port = 0;
    bool system = false;
    unsigned long latency = 0; ///< in nanoseconds
    unsigned int number = 0;
    unsigned long received = 0; ///< when the question was received, by the client's clock
    unsigned long sent = 0;     ///< when the answer was sent, by the client's clock

    static auto fields(auto& event) {
        return std::tie(
            event.nonce, event.port, event.system, event.latency, event.number, event.received,
            event.sent);
    }
    static Corvid::EventType _type;
};

} // namespace Orvel
