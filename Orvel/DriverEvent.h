#pragma once

#include <Orvel/CommandEvent.h>

#include <string>

#include <orvel_export.h>

namespace Orvel {

/// Reports whether a client drives a server that has one driver at a time: CmdReportDriver, from
/// server to client. `orvel serve` sends it; Orvel::Server does not, since all its clients drive.
/// Sent only to clients that have kFeature in the features of their greeting.
class ORVEL_EXPORT DriverEvent : public EventOf<DriverEvent, CommandEvent> {
public:
    /// Flag for Corvid::MultiCommunicator::setFeatures(): understands this event.
    static constexpr std::uint16_t kFeature = 1;
    /// Limit of the text in bytes; longer texts are refused.
    static constexpr std::size_t kMaxTextBytes = 1024;

    enum State : short {
        Driving = 1,  ///< this client drives from now on
        Replaced = 2, ///< another client drives now; events of this one are dropped
        Refused = 3,  ///< another client drives and stays; events of this one are dropped
        Free = 4,     ///< no one drives; the next to send CmdResetBackend will
    };

    void getFields() override;

    /// A value of State; later releases may send others.
    short state = Driving;
    /// A reason for people, such as the name of the driver.
    std::string text;

    static auto fields(auto& event) { return std::tie(event.state, event.text); }
    static Corvid::EventType _type;
};

} // namespace Orvel
