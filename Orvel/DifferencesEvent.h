#pragma once

#include <Orvel/CommandEvent.h>

#include <cstddef>
#include <string>
#include <vector>

#include <orvel_export.h>

namespace Orvel {

/// How a server's scene differs from that of the client that drives it: CmdReportDifferences, from
/// server to any client that sends CmdAskDifferences.
class ORVEL_EXPORT DifferencesEvent : public EventOf<DifferencesEvent, CommandEvent> {
public:
    /// Limit of the parts that one event names.
    static constexpr std::size_t kMaxNamed = 100;

    enum State : short {
        Free = 0,     ///< no one drives the server
        Unable = 1,   ///< the driver's release cannot be asked
        Compared = 2, ///< the scenes are compared, as far as `sweeps` says
    };

    /// A value of State; later releases may send others.
    short state = Free;
    /// How often the whole scene has been compared since the first question; 0: not yet.
    unsigned int sweeps = 0;
    /// The number of parts in the latest sweep.
    unsigned int parts = 0;
    /// The number of parts that differ now.
    unsigned int different = 0;
    /// Names of these for people, such as "emitter 7"; at most kMaxNamed.
    std::vector<std::string> names;

    static auto fields(auto& event) {
        return std::tie(event.state, event.sweeps, event.parts, event.different, event.names);
    }
    static Corvid::EventType _type;
};

} // namespace Orvel
