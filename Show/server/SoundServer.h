#pragma once

#include <Show/player/Stage.h>
#include <Show/server/EventTap.h>
#include <Show/server/Session.h>

#include <Orvel/DriverEvent.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace Show {

/// The server of `orvel serve`: one client at a time drives it, the one that began last or, if it
/// keeps its player, first; what the others send is dropped. What clients play are the sources of a
/// scene file; Session has the rules.
///
/// The scene must outlive it. Confined to one thread at a time, on which it is
/// polled.
class SoundServer : public StageOn<Orvel::Server> {
public:
    /// The most resets in kResetPeriod, of all clients; the one that sends more is dropped.
    static constexpr int kMaxResets = 100;
    static constexpr std::chrono::seconds kResetPeriod{10};
    /// Replaced clients that are remembered, so that they do not take over by connecting anew.
    static constexpr std::size_t kMaxReplaced = 1024;

    /// Listens at that TCP port; 0 lets the system choose.
    SoundServer(const LoadedScene& bank, SetSubject setSubject, unsigned short port);

    /// Fetches what sources name by URL, once and for all. Gives a problem for each that cannot be
    /// fetched.
    std::vector<Problem> fetch() { return session_.fetch(); }
    /// Creates the sources; back ends are best added before.
    void fill() { session_.fill(); }
    /// Whether a client that drives stays the driver when another comes. Before the first event.
    void setKeepPlayer(bool keep) { keepPlayer_ = keep; }
    /// Has everything that is applied reported; null ends that. The tap must outlive its use.
    void setTap(EventTap* tap) { tap_ = tap; }
    /// Applies what has arrived, for about `atMost`, however much there is.
    void serve(std::chrono::steady_clock::duration atMost);
    /// Applies an event of this process's own input, whoever drives; false if it makes no sense.
    bool apply(Orvel::CommandEvent& event);
    /// The sources that clients want and that are not here, since the last call, in one sentence;
    /// empty if there are none.
    std::string takeMissing();
    /// Who has replaced whom and what was refused, since the last call, a sentence each.
    std::vector<std::string> takeReports();

protected:
    bool interceptEvent(Corvid::Event& event, Corvid::Communicator& from) override;
    void clientLost(Corvid::Communicator& client) override;

private:
    using Clock = std::chrono::steady_clock;
    /// What a client has been told, and done.
    struct Client {
        bool began = false;   ///< it has sent something
        bool waits = false;   ///< it was replaced or refused
        bool dropped = false; ///< its connection is being ended
    };

    /// Makes a driver of a client that begins; false if another drives.
    bool begin(const Orvel::CommandEvent& event, Corvid::Communicator& from);
    /// Ends the driving; those that wait are told.
    void free();
    void
    inform(Corvid::Communicator& client, Orvel::DriverEvent::State state, const std::string& text);
    /// Counts a reset; false if there are too many.
    bool countReset();
    void report(std::string text);

    std::string path_; // of the scene
    Session session_;
    EventTap* tap_ = nullptr; // not owned
    bool keepPlayer_ = false;
    Corvid::Communicator* driver_ = nullptr; // null if nobody drives
    std::uint64_t driverInstance_ = 0;
    std::map<Corvid::Communicator*, Client> clients_;
    std::set<std::uint64_t> replaced_; // instances, until nobody drives
    Clock::time_point resetsSince_;
    int resets_ = 0;
    std::vector<std::string> reports_;
    std::chrono::steady_clock::time_point sliceEnd_;
    unsigned events_ = 0;
};

} // namespace Show
