#pragma once

#include <Config/Param.h>
#include <Orvel/Backend.h>
#include <Orvel/BackendType.h>
#include <Orvel/CommandEvent.h>
#include <Orvel/WorldPart.h>
#include <Vessa/Mutex.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>

#include <orvel_export.h>

namespace Corvid {
class Communicator;
class MultiClient;
} // namespace Corvid

namespace Vessa {
class Thread;
}

namespace Orvel {

namespace detail {
class SceneSweep;
}

class ClockEvent;
class DriverEvent;
class OrvelMultiClient;
class TimingEvent;

/// Sends every change of its world to all connected sound servers: the kind "client". Servers are
/// found by multicast; one that connects or reconnects receives the whole scene. Sending never
/// waits for the network, and nothing is queued for servers that are not connected.
///
/// Ids are sent as their low 16 bits, so use ids from 1 to 32767. Sounds are not sent: a server
/// plays its own sources, by id. A return to the state NONE is not sent, and unless "followEnabled"
/// is set, servers stay enabled when the world is disabled.
///
/// With a "latency" the changes between two calls of update() carry the time of the first of them,
/// and servers that can (`orvel serve`) apply them so much later, all at the same time; see
/// docs/synchrony.md. Such a server that comes late starts the sounds that play where they are.
///
/// Parameters, besides "labels" (see docs/parameters.md): "transferData" (yes), "deferred" (no),
/// "followEnabled" (no), "newestOnly" (no: a server gets every change; yes: one that lags gets only
/// the newest transform, hull and parameters of each part, see docs/network.md), "latency" (0 ms),
/// "clock" (measured), "servers"
/// (HOST:PORT, ... to connect to without multicast), "only" (ids or names of the servers to use, of
/// those found), and for the search "interfaces" (addresses or names), "group", "port", "ttl". An
/// invalid value is reported, and the default used.
///
/// Threads: one receive thread, from construction to destruction. It brings new servers up to date,
/// which reads the world, and stores the durations that servers report in the world's sources, both
/// without a lock. A host that changes its world while servers connect sets "deferred": then both
/// happen inside update() or deliver(), on the host's thread.
class ORVEL_EXPORT ClientBackend : public Backend {
public:
    ClientBackend(World& world, const char* params);
    /// Only reports misuse: logs, and creates a back end without connections.
    ClientBackend(const ClientBackend& other);
    ClientBackend& operator=(const ClientBackend&) = delete;
    /// Resets the servers, then ends the thread and closes the connections. Waits until the servers
    /// have received everything, until they have read nothing for half a second, and for at most 2
    /// s.
    ~ClientBackend() override;

    void resetBackend() override;
    void setEnabled() override;
    void setListenerTransform() override;
    void createSource(Source& source) override;
    void destroySource(Source& source) override;
    void setSourceData(Source& source) override;
    void setSourceParam(Source& source) override;
    void setSourceState(Source& source) override;
    void createEmitter(Emitter& emitter) override;
    void destroyEmitter(Emitter& emitter) override;
    void setEmitterTransform(Emitter& emitter) override;
    void setEmitterHull(Emitter& emitter) override;
    void setEmitterParam(Emitter& emitter) override;
    void setEmitterConnection(Emitter& emitter) override;
    void setEmitterState(Emitter& emitter) override;

    /// In deferred mode calls deliver(). Ends a batch of changes, so that they are sent at once.
    bool update() override;
    BackendType* type() override;
    /// The network; a copy is not working.
    [[nodiscard]] BackendState state() const override;

    /// In deferred mode: brings new servers up to date and applies received events, on the calling
    /// thread, which must be the one that changes the world. Never waits for the network. Returns
    /// the number of events and losses; 0 in the default mode, and in a nested call, such as from
    /// an override of setSourceDuration() that updates the world.
    int deliver();

    /// The connections: counters, servers to connect to, search settings. Lives as long as this
    /// back end; do not call it on a copy.
    [[nodiscard]] Corvid::MultiClient& multiClient() const;

    /// Receives the reports of a server with a single driver, and the server's "address:port".
    /// Called on the receiving thread (in deferred mode: the delivering one).
    using DriverHandler = std::function<void(const DriverEvent& event, const std::string& server)>;
    /// Sets a handler, which is called instead of logging a warning when another client drives a
    /// server. The back end stays connected meanwhile, and sends the whole scene again, in order to
    /// drive, when the server reports that no one does. Synchronised.
    void setDriverHandler(DriverHandler handler);

    /// Sends the whole scene over one connection, so that its server becomes equal to those
    /// connected before; called for each new one.
    bool addCommunicator(Corvid::Communicator* connection);
    /// The latency; 0 if changes are applied on arrival.
    [[nodiscard]] std::chrono::nanoseconds latency() const noexcept;
    /// Raises it: all changes from now on happen so much later. Before the scene begins, for else
    /// what plays already is out of phase with what follows.
    void raiseLatency(std::chrono::nanoseconds latency);
    /// What the outputs of connected servers need, as they report it once a second, without the
    /// network's share; 0 if none of them needs any. With less, sounds begin late there.
    /// Synchronised.
    [[nodiscard]] std::chrono::nanoseconds neededLatency() const;
    /// Limit of what a server can ask for, in seconds; more is ignored.
    static constexpr float kMaxLead = 2.0F;
    /// The time of the latest changes, as servers are given it; the epoch without a latency. On the
    /// thread that changes the world.
    [[nodiscard]] std::chrono::steady_clock::time_point changeTime() const;
    /// The number of connected servers that keep times and do not yet know this machine's clock
    /// well enough: what begins before they do joins late there. Synchronised.
    [[nodiscard]] std::size_t serversNotReady() const;

    /// Applies an event of a server. Returns false, and logs, if it is not for a client. The caller
    /// keeps the event.
    bool dispatchEvent(CommandEvent* event);
    /// The receive thread's main function.
    int receiveThread();

    /// The command for a state, or 0 for a state that is not sent.
    [[nodiscard]] static short sourceState2Command(WorldPart::State state);
    [[nodiscard]] static short emitterState2Command(WorldPart::State state);

    static Backend* createMethod(World& world, const char* params);
    static BackendType _type;

private:
    void configure(const Config::ParamReader& read);
    [[nodiscard]] bool sendsEnabled();
    void sendScene(Corvid::Communicator* connection, bool exactly);
    void sendOffer(Corvid::Communicator& connection);
    void sendTime();
    void followUp();
    void sendChecks();
    void stamp() {
        if (stampDue_.load(std::memory_order_relaxed)) {
            sendTime();
        }
    }
    void answer(const ClockEvent& question, Corvid::Communicator& server);
    void takeTiming(const TimingEvent& event, Corvid::Communicator& server);
    /// Applies one event of a connection that has some, or removes a lost connection.
    void receiveFrom(Corvid::Communicator* connection);
    bool takeEvent(Corvid::Communicator* connection);
    /// Sends a change of the scene or a part to all servers.
    template <Command command, class Subject>
    void sendChange(Subject& subject);
    void takeDriver(const DriverEvent& event, Corvid::Communicator& server);

    std::unique_ptr<OrvelMultiClient> communicator_; // null in a copy
    std::unique_ptr<Vessa::Thread> thread_;
    bool transferData_ = true;
    bool deferred_ = false;
    bool followEnabled_ = false;
    struct Timing;
    std::unique_ptr<Timing> timing_;            // null without a latency
    std::atomic<bool> stampDue_ = false;        // no time has been sent since the last update
    std::atomic<std::int64_t> checksUntil_ = 0; // nanoseconds; 0: no server asks
    std::unique_ptr<detail::SceneSweep> sweep_; // of the thread that updates; null in a copy
    Vessa::Mutex replay_;                       // held during a replay, and to send a check
    std::set<short> destroyedSources_; // since the last reset; servers may have such sources
    mutable Vessa::Mutex mutex_;
    DriverHandler driverHandler_ ORVEL_GUARDED_BY(mutex_);
    std::set<const Corvid::Communicator*> notReady_ ORVEL_GUARDED_BY(mutex_);
    std::map<const Corvid::Communicator*, float> leads_ ORVEL_GUARDED_BY(mutex_); // in seconds
};

} // namespace Orvel
