#pragma once

#include <Orvel/CommandEvent.h>

#include <string>

#include <orvel_export.h>

namespace Orvel {

/// Whether a client drives a server that has one driver at a time: CmdReportDriver, from server to
/// client. `orvel serve` sends it; Orvel::Server does not, all its clients drive. It is sent only
/// to clients that have kFeature among the features of their greeting.
class ORVEL_EXPORT DriverEvent : public EventOf<DriverEvent, CommandEvent> {
public:
    /// Of Corvid::MultiCommunicator::setFeatures(): understands this event.
    static constexpr std::uint16_t kFeature = 1;
    /// The most bytes of the text; more are refused.
    static constexpr std::size_t kMaxTextBytes = 1024;

    enum State : short {
        Driving = 1,  ///< this client drives from here on
        Replaced = 2, ///< another client drives now; what this one sends is dropped
        Refused = 3,  ///< another client drives and stays; what this one sends is dropped
        Free = 4,     ///< nobody drives; the next one that sends CmdResetBackend will
    };

    void getFields() override;

    /// One of State; later releases may send others.
    short state = Driving;
    /// A reason for people, such as who drives now.
    std::string text;

    static auto fields(auto& event) { return std::tie(event.state, event.text); }
    static Corvid::EventType _type;
};

} // namespace Orvel
