#pragma once

#include <Orvel/CheckEvent.h>
#include <Orvel/World.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include <orvel_export.h>

namespace Corvid {
class Communicator;
class Event;
class InetAddress;
class MultiServer;
} // namespace Corvid

namespace Vessa {
class Thread;
}

namespace Orvel {

class SourceDataEvent;

/// A world that clients drive over the network: events of client back ends are applied to it, and
/// so reach its own back ends. Durations that those measure are sent back to the clients.
///
/// Clients create no sources here: create the sources that they play beforehand, under the same
/// ids, and again after each reset, by overriding resetWorld(). The parts of a client remain when
/// its connection is lost. All clients drive the one scene. Once a client has started a scene with
/// a reset, unread events of earlier connections whose peers are gone are discarded; a client that
/// reconnects likewise closes its former connection.
///
/// Threads: after run() events are applied on a thread of this object, without a lock, until stop()
/// or destruction; a host that uses the world itself calls receive(false) from its own loop
/// instead. Set everything up before either. Not copyable.
///
/// Anyone who can reach the server can drive it, unless setKeys() says who may.
class ORVEL_EXPORT Server : public World {
public:
    /// Listens at once, on a port chosen by the system; discoverable from the first receive on.
    /// Throws std::system_error if the process has no descriptors left.
    Server();
    /// The same with a fixed TCP port, for clients and firewalls, on the IPv4 address of `host`, or
    /// on all if that is empty. If the port is in use, a diagnostic reports it and
    /// multiServer().port() is 0.
    Server(const std::string& host, unsigned short port);
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;
    /// Stops the thread and closes the connections: at once if clients have received everything,
    /// otherwise within half a second, or 2 s while they still read queued data. Parts and back
    /// ends remain: call stop(), clearWorld() and deleteAllBackends() first, as for any world. A
    /// derived class with overrides calls stop() in its own destructor.
    ~Server() override;

    /// The multicast group of the search, see Corvid::Multicast.
    [[nodiscard]] const Corvid::InetAddress& multicastAddress() const;
    void setMulticastAddress(const Corvid::InetAddress& address);
    [[nodiscard]] unsigned short multicastPort() const;
    void setMulticastPort(unsigned short port);
    [[nodiscard]] int multicastTtl() const;
    void setMulticastTtl(int ttl);
    /// A number that identifies the server to users; sent to clients.
    [[nodiscard]] short id() const;
    void setId(short id);
    /// Sets the id from a text: the number at its start, or the sum of its characters if that is
    /// missing or 0, each truncated to 16 bits; 0 for an empty text or null.
    void setId(const char* text);
    /// Truncates the number to 16 bits. Without this overload, setId(0) could mean a null text.
    void setId(int id) { setId(static_cast<short>(id)); }
    /// The id that setId() derives from a text.
    [[nodiscard]] static short idOf(const char* text);

    /// Lets only clients with a key of this file connect, and only those with the right "drive"
    /// change the scene; see Corvid::MultiCommunicator::setKeys() and docs/security.md. Call it
    /// before the first receive. Returns false, with a diagnostic, if the file has no usable keys;
    /// no one can connect then until it has.
    bool setKeys(const std::string& path);

    /// The connections: port, counters, settings. Lives as long as this server.
    [[nodiscard]] Corvid::MultiServer& multiServer() const noexcept { return *multiServer_; }

    /// Observes the clients' events, for recordings and statistics. Called on the receiving thread;
    /// the server must not be destroyed meanwhile.
    class ORVEL_EXPORT Observer {
    public:
        Observer() = default;
        Observer(const Observer&) = delete;
        Observer& operator=(const Observer&) = delete;
        virtual ~Observer() = default;

        /// An event from a client, by its Corvid::Communicator::Counters::peer, has arrived whole
        /// and is applied next.
        virtual void received(Corvid::Event& event, const std::string& client) = 0;
        /// The following events happen at this time, see setTimed(); nothing: on arrival. Does
        /// nothing by default.
        virtual void setTime(std::optional<std::chrono::steady_clock::time_point> time);
        /// A client is gone.
        virtual void lost(const std::string& client) = 0;
    };
    /// Has an observer see every event; null ends that. It must outlive its use. At a moment when
    /// nothing is received.
    void setObserver(Observer* observer) noexcept { observer_ = observer; }

    /// Has changes of clients that send their times (the kind "client" with a latency) applied at
    /// these times plus the client's latency and `delay`, rather than on arrival: inside
    /// receive(false), for which nextDue() says when to call it. The clients' clocks are measured
    /// meanwhile; Corvid::Communicator::Counters::timing has the result. Changes that come too late
    /// are applied at once and counted. Before the first receive; not with run().
    void setTimed(std::chrono::nanoseconds delay = {});
    /// When receive(false) has held changes to apply; nothing if there are none.
    [[nodiscard]] std::optional<std::chrono::steady_clock::time_point> nextDue();
    /// Whether changes of a client are held until their times.
    [[nodiscard]] bool isTimed() const noexcept;

    /// Whether changes of this client are held until their times.
    [[nodiscard]] bool isTimed(Corvid::Communicator& client) const;
    /// Whether this client's clock is known well enough, so that its changes are applied.
    [[nodiscard]] bool knowsClockOf(Corvid::Communicator& client) const;

    /// Starts the receive thread.
    void run();
    /// Stops the receive thread, if there is one, and waits for it; do not call it on that thread.
    /// run() may follow.
    void stop();
    /// The receive thread's main function.
    int receiveThread();

    /// Limit of events and losses in one receive(false); the rest is for the next call.
    static constexpr int kMaxEventsPerReceive = 16384;

    /// Applies received events, accepts clients and sends queued data; returns the number of
    /// events. With `block` it continues until stop(); without, it never waits, and applies at most
    /// kMaxEventsPerReceive, so that a client that sends continuously does not block the caller. If
    /// applying an event throws, its client is dropped.
    int receive(bool block);

    /// Applies one event. Returns false, and logs, if it is invalid. The caller keeps the event.
    bool dispatchEvent(CommandEvent* event);
    /// Applies an event to any world, for applications that store events and apply them later.
    static bool applyEvent(World& world, CommandEvent* event);

    /// Writes the bytes of an event to a file in the current directory; its name is "OrvelSRC", the
    /// object id and the extension of the event's file name. For applications that accept sources
    /// from clients; not called here. Sets `fileName`. Returns false, with `fileName` unchanged, if
    /// there are no bytes or they could not be written.
    bool writeLocalData(SourceDataEvent& event, std::string& fileName);

    /// Sends the duration of a source to the clients.
    void setSourceDuration(Source& source) override;

    /// Number of events received, whether or not they could be applied. Any thread.
    [[nodiscard]] std::int64_t receivedEvents() const noexcept { return receivedEvents_; }

protected:
    /// Receives each event before it is applied, with its connection; true means that the event is
    /// handled and must not be applied. Do not keep or delete the event or the connection. Called
    /// on the receiving thread.
    virtual bool interceptEvent(Corvid::Event& event, Corvid::Communicator& from);

    /// Called instead for an event of a client whose key may only watch; it has no effect. Reports
    /// it by default. Must not throw.
    virtual void watcherSent(const Corvid::Event& event, Corvid::Communicator& from);
    /// For servers whose output is ahead of the time: how long before they are due changes are
    /// applied that start sounds or create parts, and others. 0 by default.
    struct Lead {
        std::chrono::nanoseconds start{};
        std::chrono::nanoseconds value{};
    };
    virtual Lead lead();
    /// Held changes that are due at this time are applied next; endDue() follows. Returns by how
    /// much they are late; negative if they are not. By default by their arrival.
    virtual std::chrono::nanoseconds beginDue(
        std::chrono::steady_clock::time_point due, std::chrono::steady_clock::time_point arrived);
    virtual void endDue();

    // For servers whose scene is more than its clients'. What clients have sent is compared with
    // theirs, when someone asks (`orvel servers --verify`).

    /// The only client whose changes are applied, or null; nothing if all clients drive, which is
    /// the default.
    [[nodiscard]] virtual std::optional<Corvid::Communicator*> soleDriver() const;
    /// Whether the server itself has changed or created a part, which is not compared then; `id` as
    /// in CheckEvent::Part. By default it has not.
    [[nodiscard]] virtual bool isOwn(CheckEvent::Kind kind, int id) const;
    /// Values as they were received, where the server plays others. Those of the parts by default.
    [[nodiscard]] virtual float receivedGain(const Emitter& emitter) const;
    [[nodiscard]] virtual float receivedPitch(const Source& source) const;

    /// Called when a client is gone, on the receiving thread; its connection is deleted afterwards.
    /// Does nothing by default. Must not throw.
    virtual void clientLost(Corvid::Communicator& client);

private:
    bool receiveFrom(Corvid::Communicator* client);
    bool takeEvent(Corvid::Communicator& client);
    bool applyFrame(std::span<const std::byte> frame, Corvid::Communicator& client);
    bool hold(std::span<const std::byte> frame, Corvid::Communicator& client);
    int applyDue(int most);
    int
    applyBatch(Corvid::Communicator& client, std::chrono::steady_clock::time_point due, int most);
    void applyRest(Corvid::Communicator& client);
    void discardHeld(const Corvid::Communicator& newer);
    void reportTimings();
    void answerTiming(Corvid::Communicator& asker);
    void answerDifferences(Corvid::Communicator& asker);
    void compare(const CheckEvent& check, const Corvid::Communicator& client);
    [[nodiscard]] const char* differenceOf(const CheckEvent::Part& part);
    void take(Corvid::Event& event, CommandEvent* command, Corvid::Communicator& client);

    std::unique_ptr<Corvid::MultiServer> multiServer_;
    std::atomic<std::int64_t> receivedEvents_ = 0;
    std::atomic<bool> stopping_ = false;
    std::unique_ptr<Vessa::Thread> thread_;
    Observer* observer_ = nullptr; // not owned
    struct Timing;
    std::unique_ptr<Timing> timing_; // null: all changes are applied on arrival
    struct Comparison;
    std::unique_ptr<Comparison> comparison_; // null until someone asks
    std::string dataDir_;                    // empty: the current directory
};

} // namespace Orvel
