#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace OrvelTool {

/// Announces services on the local network by DNS-SD, through the Avahi daemon if this machine runs
/// one, as long as this object lives. Without a daemon it waits for one to start, and in a build
/// without Avahi's library it does nothing; both are normal, and logged at the level Debug only.
///
/// Confined to one thread; Avahi's work is done on a thread of its own. Nothing fails.
class Announcement {
public:
    /// One service.
    struct Service {
        std::string type;    ///< such as "_osc._udp"
        std::string address; ///< where it listens; 0.0.0.0: everywhere
        std::uint16_t port = 0;
        std::vector<std::string> texts{}; ///< "key=value"
    };

    Announcement();
    Announcement(const Announcement&) = delete;
    Announcement& operator=(const Announcement&) = delete;
    ~Announcement();

    /// Announces a service, unless only this machine reaches its address.
    void add(Service service);

private:
    struct State;
    std::unique_ptr<State> state_; // null without a service
};

} // namespace OrvelTool
