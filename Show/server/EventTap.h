#pragma once

#include <Corvid/Event.h>

#include <string>

namespace Show {

/// Receives the events of a sound server in the order in which they are applied, on the server's
/// thread.
class EventTap {
public:
    EventTap() = default;
    EventTap(const EventTap&) = delete;
    EventTap& operator=(const EventTap&) = delete;
    virtual ~EventTap() = default;

    /// An event from a client ("address:port") is about to be applied.
    virtual void received(Corvid::Event& event, const std::string& client) = 0;
    /// A client is gone and its parts are removed.
    virtual void lost(const std::string& client) = 0;
};

} // namespace Show
