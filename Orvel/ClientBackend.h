#pragma once

#include <Orvel/Backend.h>
#include <Orvel/BackendType.h>
#include <Orvel/CommandEvent.h>
#include <Orvel/WorldPart.h>

#include <functional>
#include <memory>
#include <mutex>
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

class DriverEvent;
class OrvelMultiClient;

/// Sends every change of its world to all sound servers that are connected: the kind "client".
/// Servers are found by multicast; one that connects, or comes back, is told the whole scene.
/// Sending never waits for the network, and nothing is kept for servers that are not there.
///
/// Ids travel as their low 16 bits, so use ids from 1 to 32767. What sources play does not travel:
/// a server plays its own sources, by their ids. A state that goes back to NONE is not told, and
/// unless "followEnabled" is set, servers stay enabled when the world is disabled.
///
/// Parameters, beside "labels" (see docs/parameters.md): "transferData" (yes), "deferred" (no),
/// "followEnabled" (no), "newestOnly" (no: a server gets every change; yes: one that lags gets only
/// the newest transform, hull and parameter of each part, see docs/network.md), "servers"
/// (HOST:PORT, ... to connect to without multicast), "only" (ids or names of the servers to use of
/// those that are found), and where to search: "interfaces" (addresses or names), "group", "port",
/// "ttl". A value that cannot be is reported, and the default used.
///
/// Threads: one receive thread, from construction to destruction. It brings new servers up to date,
/// reading the world, and stores the playing times that servers report in the world's sources, both
/// without any lock. A host that changes its world while servers come and go sets "deferred": then
/// both happen inside update() or deliver(), on the host's thread.
class ORVEL_EXPORT ClientBackend : public Backend {
public:
    ClientBackend(World& world, const char* params);
    /// Exists only to report misuse: logs, and makes a back end that reaches nobody.
    ClientBackend(const ClientBackend& other);
    ClientBackend& operator=(const ClientBackend&) = delete;
    /// Resets the servers, then ends the thread and the connections. Waits until the servers have
    /// what was sent to them, until they have taken nothing of it for half a second, and for 2 s at
    /// most.
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

    /// In deferred mode delivers; otherwise there is nothing to do.
    bool update() override;
    BackendType* type() override;

    /// In deferred mode: brings new servers up to date and applies what servers have sent, on the
    /// calling thread, which is the one that changes the world. Never waits for the network.
    /// Returns how many events and losses there were; 0 in the default mode, and in a call from
    /// within, such as by an override of setSourceDuration() that updates the world.
    int deliver();

    /// The connections: counters, servers to connect to, where to search. Lives as long as this;
    /// must not be asked of a copy.
    [[nodiscard]] Corvid::MultiClient& multiClient() const;

    /// Takes what a server that has one driver at a time says about who drives it, with the
    /// server's "address:port". On the thread that receives (in deferred mode: that delivers).
    using DriverHandler = std::function<void(const DriverEvent& event, const std::string& server)>;
    /// Has the handler called instead of the log, which gets a warning when another client drives a
    /// server now. The back end stays connected meanwhile, and sends the whole scene, so as to
    /// drive again, when the server says that nobody drives it. Synchronised.
    void setDriverHandler(DriverHandler handler);

    /// Sends the whole scene over one connection, so that the server's becomes equal to those of
    /// the servers that were there before; called for each new one.
    bool addCommunicator(Corvid::Communicator* connection);
    /// Applies what a server sent; false, and logged, if it means nothing to a client. The event
    /// stays with the caller.
    bool dispatchEvent(CommandEvent* event);
    /// The receive thread's body.
    int receiveThread();

    /// The command that tells a state, or 0 for one that is not told.
    [[nodiscard]] static short sourceState2Command(WorldPart::State state);
    [[nodiscard]] static short emitterState2Command(WorldPart::State state);

    static Backend* createMethod(World& world, const char* params);
    static BackendType _type;

private:
    void configure();
    [[nodiscard]] bool tellsEnabled();
    void sendScene(Corvid::Communicator* connection, bool exactly);
    /// Takes one event from a connection that has something, or gives up a lost one.
    void receiveFrom(Corvid::Communicator* connection);
    bool takeEvent(Corvid::Communicator* connection);
    /// Sends a change of the scene or a part to all servers.
    template <Command command, class Subject>
    void tell(Subject& subject);
    void takeDriver(const DriverEvent& event, Corvid::Communicator& server);

    std::unique_ptr<OrvelMultiClient> communicator_; // null in a copy
    std::unique_ptr<Vessa::Thread> thread_;
    bool transferData_ = true;
    bool deferred_ = false;
    bool followEnabled_ = false;
    std::set<short> destroyedSources_; // since the last reset; servers have had them of their own
    std::mutex handlerMutex_;
    DriverHandler driverHandler_; // guarded by handlerMutex_
};

} // namespace Orvel
