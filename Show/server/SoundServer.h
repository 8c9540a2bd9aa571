#pragma once

#include <Show/server/Session.h>

#include <Orvel/DriverEvent.h>
#include <Orvel/OwningWorld.h>
#include <Orvel/Server.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace Show {

/// The server of `orvel serve`: one client at a time drives it, the newest or, if it keeps its
/// player, the first; events of other clients are dropped. A client whose key may only watch is
/// informed who drives. Clients play the sources of a scene file
/// by the rules of Session.
///
/// The scene must outlive it. Confined to one thread at a time, which polls it.
class SoundServer : public Orvel::OwningWorld<Orvel::Server> {
public:
    /// Limit of resets in kResetPeriod, over all clients; a client that exceeds it is dropped.
    static constexpr int kMaxResets = 100;
    static constexpr std::chrono::seconds kResetPeriod{10};
    /// Limit of remembered replaced clients, which must not take over by reconnecting.
    static constexpr std::size_t kMaxReplaced = 1024;

    /// Listens on that TCP port; 0 lets the system choose. `host`: see Orvel::Server.
    SoundServer(const LoadedScene& bank, unsigned short port, const std::string& host = "");

    /// Fetches the sources with a URL, once. Returns a problem for each that cannot be fetched.
    std::vector<Problem> fetch() { return session_.fetch(); }
    /// Creates the sources; add back ends before.
    void fill() { session_.fill(); }
    /// Whether the driver stays when another client begins. Set it before the first event.
    void setKeepPlayer(bool keep) { keepPlayer_ = keep; }
    /// Sets an observer of all applied events; null removes it. It must outlive its use.
    void setTap(Observer* tap) { tap_ = tap; }
    /// Applies received events, for about `atMost`.
    void serve(std::chrono::steady_clock::duration atMost);
    /// Applies an event of the local input, regardless of the driver. Returns false if it is
    /// invalid.
    bool apply(Orvel::CommandEvent& event);
    /// The ids of sources that clients asked for and that are missing, since the last call, as a
    /// list for people; empty if there are none.
    std::string takeMissing() { return session_.takeMissing(); }
    /// Driver changes and refusals since the last call, one sentence each.
    std::vector<std::string> takeReports();

protected:
    bool interceptEvent(Corvid::Event& event, Corvid::Communicator& from) override;
    void clientLost(Corvid::Communicator& client) override;
    void watcherSent(const Corvid::Event& event, Corvid::Communicator& from) override;

private:
    using Clock = std::chrono::steady_clock;
    /// State of a client.
    struct Client {
        bool began = false;   ///< has sent an event
        bool waits = false;   ///< it was replaced or refused
        bool dropped = false; ///< its connection is being closed
        bool watches = false; ///< its key may do no more
    };

    /// Makes a client that begins the driver. Returns false if another drives.
    bool begin(const Orvel::CommandEvent& event, Corvid::Communicator& from);
    /// Frees the server for another driver and informs the waiting clients.
    void free();
    void
    inform(Corvid::Communicator& client, Orvel::DriverEvent::State state, const std::string& text);
    /// Informs a client whose key may only watch.
    void informWatcher(Corvid::Communicator& client);
    void informWatchers();
    /// Counts a reset. Returns false if there are too many.
    bool countReset();
    void report(std::string text);

    Session session_;
    Observer* tap_ = nullptr; // not owned
    bool keepPlayer_ = false;
    Corvid::Communicator* driver_ = nullptr; // null if no one drives
    std::uint64_t driverInstance_ = 0;
    std::map<Corvid::Communicator*, Client> clients_;
    std::set<std::uint64_t> replaced_; // instances, until no one drives
    Clock::time_point resetsSince_;
    int resets_ = 0;
    std::vector<std::string> reports_;
    std::chrono::steady_clock::time_point sliceEnd_;
    unsigned events_ = 0;
};

} // namespace Show
