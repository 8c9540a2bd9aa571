#pragma once

#include <Corvid/Event.h>

#include <string>

namespace Show {

/// Is told what reaches a sound server, in the order in which it is applied, on the server's
/// thread.
class EventTap {
public:
    EventTap() = default;
    EventTap(const EventTap&) = delete;
    EventTap& operator=(const EventTap&) = delete;
    virtual ~EventTap() = default;

    /// An event from a client ("address:port") is about to be applied.
    virtual void received(Corvid::Event& event, const std::string& client) = 0;
    /// A client is gone, and what it has made goes.
    virtual void lost(const std::string& client) = 0;
};

} // namespace Show
