#pragma once

#include <Orvel/World.h>

#include <atomic>
#include <cstdint>
#include <memory>
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

class CommandEvent;
class SourceDataEvent;

/// A world that clients drive over the network: what a client back end sends is applied here, and
/// so to this world's back ends. Playing times that those measure go back to the clients.
///
/// Clients create no sources here: create those that they play beforehand, under the same ids, and
/// again after each reset, for which resetWorld() is overridden. The parts that a client made stay
/// when it is lost. All clients drive the one scene. Once a client has begun it with a reset,
/// nothing is applied that connections made before, whose peers are gone, have left unread; a
/// client that connects anew ends its former connection likewise.
///
/// Threads: after run() everything that arrives is applied on a thread of this object, without any
/// lock, until stop() or destruction; a host that wants the world for itself calls receive(false)
/// from its own loop instead. Settings are made before either. Not copied.
///
/// Whoever can reach the server can drive it: there is no authentication.
class ORVEL_EXPORT Server : public World {
public:
    /// Listens at once, on a port that the system chooses, and can be found with the first receive.
    /// Throws std::system_error if the process has no descriptors left even to begin.
    Server();
    /// The same at a TCP port that clients and firewalls know beforehand, on the IPv4 address that
    /// `host` names, or on all if that is empty. If the port is taken, a diagnostic says so and
    /// multiServer().port() is 0.
    Server(const std::string& host, unsigned short port);
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;
    /// Stops the thread and closes the connections: at once when clients have everything, and in
    /// half a second, or 2 s while they still take what is queued for them, when not. Parts and
    /// back ends stay: stop(), clearWorld() and deleteAllBackends() come first, as for any world. A
    /// derived class with overrides calls stop() in its own destructor.
    ~Server() override;

    /// Where clients search for servers, see Corvid::Multicast.
    [[nodiscard]] const Corvid::InetAddress& multicastAddress() const;
    void setMulticastAddress(const Corvid::InetAddress& address);
    [[nodiscard]] unsigned short multicastPort() const;
    void setMulticastPort(unsigned short port);
    [[nodiscard]] int multicastTtl() const;
    void setMulticastTtl(int ttl);
    /// The number by which people tell servers apart; clients are told.
    [[nodiscard]] short id() const;
    void setId(short id);
    /// Makes an id of a text: the number that it begins with, or the sum of its characters if that
    /// is none or 0, each cut to 16 bits; 0 for an empty text or null.
    void setId(const char* text);
    /// The low 16 bits of a number; without it, setId(0) could mean a null text.
    void setId(int id) { setId(static_cast<short>(id)); }
    /// The id that setId() makes of a text.
    [[nodiscard]] static short idOf(const char* text);

    /// The connections: port, counters, settings. Lives as long as this.
    [[nodiscard]] Corvid::MultiServer& multiServer() const noexcept { return *multiServer_; }

    /// Starts the receive thread.
    void run();
    /// Ends the receive thread, if there is one, and waits for it, so not from within it. run() may
    /// follow.
    void stop();
    /// The receive thread's body.
    int receiveThread();

    /// The events and losses after which receive(false) returns; the rest is for the next call.
    static constexpr int kMaxEventsPerReceive = 16384;

    /// Applies the events that have arrived, accepts clients and sends what is due; returns how
    /// many events there were. With `block` it goes on until stop(), and returns then; without, it
    /// never waits, and takes at most kMaxEventsPerReceive, so that a client that sends without a
    /// pause does not hold the caller. A client whose event makes anything throw is dropped.
    int receive(bool block);

    /// Applies one event; false, and logged, if it cannot be. The event stays with the caller.
    bool dispatchEvent(CommandEvent* event);
    /// The same for any world, for applications that keep events and apply them later.
    static bool applyEvent(World& world, CommandEvent* event);

    /// Writes the bytes of an event to the file "OrvelSRC", its object id and the extension of its
    /// file name, in the current directory; gives the file's name. For applications that take
    /// sources from clients; nothing here calls it. False, and `fileName` as it was, if there are
    /// no bytes or they could not be written.
    bool writeLocalData(SourceDataEvent& event, std::string& fileName);

    /// Tells the clients the playing time of a source.
    void setSourceDuration(Source& source) override;

    /// Events that were received whole, whether or not they could be applied. Any thread.
    [[nodiscard]] std::int64_t receivedEvents() const noexcept { return receivedEvents_; }

protected:
    /// Sees each event before it is applied, with the connection that it came over; true takes it
    /// over, so that nothing more happens to it. Neither the event nor the connection may be kept
    /// or deleted. On the thread that receives.
    virtual bool interceptEvent(Corvid::Event& event, Corvid::Communicator& from);

    /// A client is gone; its connection is deleted after this. On the thread that receives. Does
    /// nothing. Must not throw.
    virtual void clientLost(Corvid::Communicator& client);

private:
    bool receiveFrom(Corvid::Communicator* client);
    bool takeEvent(Corvid::Communicator* client);

    std::unique_ptr<Corvid::MultiServer> multiServer_;
    std::atomic<std::int64_t> receivedEvents_ = 0;
    std::atomic<bool> stopping_ = false;
    std::unique_ptr<Vessa::Thread> thread_;
    std::string dataDir_; // empty: the current directory
};

} // namespace Orvel
