#pragma once

#include <Show/server/HeldScene.h>
#include <Show/server/PitchHold.h>
#include <Show/server/Session.h>

#include <Corvid/PeerClock.h>
#include <Orvel/DriverEvent.h>
#include <Orvel/OwningWorld.h>
#include <Orvel/Server.h>
#include <Orvel/SourceParamEvent.h>
#include <Orvel/VoicesBackend.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
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
    /// Holds sounds in phase with the driver's clock: `lead` and `frames` are those of
    /// PitchHold::update(), by this machine's clock, for an output that is rendered by this thread.
    /// Others are looked at by serve().
    void holdPitch(double lead, double frames);
    /// How long the scene goes on when its driver is lost. A driver that sends its times and begins
    /// meanwhile changes only what is different.
    void setHold(std::chrono::duration<double> time) { held_.setTime(time); }
    /// A factor on the gains of all emitters, for this server's loudspeakers. Set it before the
    /// first event.
    void setGain(float gain) { gain_ = gain; }
    Orvel::Emitter* createEmitter(const std::vector<std::string>& labels, int id) override;
    using OwningWorld::createEmitter;
    /// Sets an observer of all applied events; null removes it. It must outlive its use.
    void setTap(Observer* tap) { tap_ = tap; }
    /// Renders the output up to a time, before changes are applied that are due then. Returns by
    /// how much it was ahead of that already; negative if it was not.
    using RenderTo = std::function<std::chrono::nanoseconds(std::chrono::steady_clock::time_point)>;
    /// Sets it for an output that is rendered by this thread. It must not throw.
    void setRenderTo(RenderTo renderTo) { renderTo_ = std::move(renderTo); }
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
    Lead lead() override;
    std::chrono::nanoseconds beginDue(
        std::chrono::steady_clock::time_point due,
        std::chrono::steady_clock::time_point arrived) override;
    void endDue() override;
    [[nodiscard]] std::optional<Corvid::Communicator*> soleDriver() const override {
        return driver_;
    }
    [[nodiscard]] bool isOwn(Orvel::CheckEvent::Kind kind, int id) const override;
    [[nodiscard]] float receivedGain(const Orvel::Emitter& emitter) const override;
    [[nodiscard]] float receivedPitch(const Orvel::Source& source) const override;

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
    /// Whether its scene follows a driver's clock.
    [[nodiscard]] bool keepsTime() const { return isTimed() || held_.isHeld(); }
    /// Returns how well the driver's clock is known: a deviation in seconds.
    double followDriverClock();
    /// Notes the pitch of a source, and changes the event to the one that holds it in phase.
    void holdPitchOf(Orvel::SourceParamEvent& event);
    /// The emitters whose sounds an event starts.
    std::vector<Orvel::Emitter*> startedBy(const Orvel::CommandEvent& event);
    /// Notes which sounds an event starts. Of one that has come late, they join where they should
    /// be by now.
    void noteStarts(const Orvel::CommandEvent& event, Corvid::Communicator& from);
    /// The pitch of a source as its driver set it.
    [[nodiscard]] double pitchOf(const Orvel::Source& source) const;
    /// When the event that is being applied happens, by its client's clock, in nanoseconds.
    [[nodiscard]] std::int64_t timeOf(const Corvid::Communicator& client) const;
    /// Merges the events of a driver that continues the scene. Returns true if the event must not
    /// be applied.
    bool merge(const Orvel::CommandEvent& event, Corvid::Communicator& from);
    /// Ends the scene of a lost driver.
    void endHeld();
    /// Notes which parts the local input has changed.
    void noteOwn(const Orvel::CommandEvent& event);
    /// A driver sets all parts again. Those that the local input still uses stay its own.
    void forgetOwn();

    Session session_;
    HeldScene held_;
    bool continues_ = false;               // the driver has connected anew
    std::optional<Clock::time_point> due_; // of the events that are being applied
    Observer* tap_ = nullptr;              // not owned
    RenderTo renderTo_;                    // empty if the output has a thread of its own
    double behind_ = 0.0;                  // the lateness of the events being applied, in seconds
    std::map<int, double> offsets_;        // of emitters that join late, to be restored
    float gain_ = 1.0F;
    std::map<int, float> gains_; // of emitters, as their driver set them, unless gain_ is 1
    std::set<std::pair<Orvel::CheckEvent::Kind, int>> own_; // parts that the local input changed
    PitchHold pitchHold_;
    unsigned nominalRate_ = 0; // of the output that is held in phase
    Corvid::PeerClock driverClock_;
    double clockAhead_ = 0.0;      // the driver's, in seconds
    double clockDrifted_ = 0.0;    // how much of that came while it was the same driver's
    std::uint64_t followed_ = 0;   // instance of the driver whose clock that is
    std::map<int, float> pitches_; // of sources, as their driver set them
    Clock::time_point pitchAgain_;
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
