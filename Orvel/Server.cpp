#include <Orvel/Server.h>

#include <Corvid/MultiServer.h>
#include <Orvel/CommandEvent.h>
#include <Orvel/CreateEmitterEvent.h>
#include <Orvel/Emitter.h>
#include <Orvel/EmitterConnectionEvent.h>
#include <Orvel/EmitterHullEvent.h>
#include <Orvel/EmitterParamEvent.h>
#include <Orvel/Source.h>
#include <Orvel/SourceDataEvent.h>
#include <Orvel/SourceDurationEvent.h>
#include <Orvel/SourceParamEvent.h>
#include <Orvel/TransformEvent.h>
#include <Orvel/detail/LogLine.h>
#include <Orvel/detail/net/PeerLines.h>
#include <Orvel/detail/net/RouteDiagnostics.h>
#include <Vessa/ObjectThread.h>

#include <cstdlib>
#include <exception>
#include <typeinfo>

namespace Orvel {

namespace {

enum class Outcome { Applied, Invalid, Unknown };

/// A dynamic_cast to the base of all that a client sends, but faster for those of a scene.
CommandEvent* asCommand(Corvid::Event* event) {
    const auto* type = &typeid(*event);
    const bool known = type == &typeid(TransformEvent) || type == &typeid(EmitterParamEvent) ||
                       type == &typeid(EmitterHullEvent) || type == &typeid(CommandEvent) ||
                       type == &typeid(CreateEmitterEvent) ||
                       type == &typeid(EmitterConnectionEvent);
    return known ? static_cast<CommandEvent*>(event) : dynamic_cast<CommandEvent*>(event);
}

/// Calls `apply` with both if the event is of its class and the part exists.
template <class EventClass, class Part, class Apply>
Outcome applyTo(CommandEvent& event, Part* part, Apply apply) {
    // Most events are of that very class, which is found out faster.
    auto* concrete = typeid(event) == typeid(EventClass) ? static_cast<EventClass*>(&event)
                                                         : dynamic_cast<EventClass*>(&event);
    if (concrete == nullptr || part == nullptr) {
        return Outcome::Invalid;
    }
    apply(*concrete, *part);
    return Outcome::Applied;
}

Outcome setState(WorldPart* part, WorldPart::State state) {
    if (part == nullptr) {
        return Outcome::Invalid;
    }
    part->setState(state);
    return Outcome::Applied;
}

Outcome destroy(WorldPart* part) {
    if (part == nullptr) {
        return Outcome::Invalid;
    }
    delete part;
    return Outcome::Applied;
}

Outcome apply(World& world, CommandEvent& event) {
    const int id = event.objectId;
    switch (event.command) {
    case CmdResetBackend:
        world.reset();
        return Outcome::Applied;
    case CmdEnable:
        world.setEnabled(true);
        return Outcome::Applied;
    case CmdDisable:
        world.setEnabled(false);
        return Outcome::Applied;
    case CmdSetListenerTransform:
        return applyTo<TransformEvent>(event, &world, [](const auto& e, World& w) {
            w.setListenerTransform(e.position, e.rotation);
        });
    case CmdDestroySource:
        return destroy(world.getSource(id));
    case CmdSetSourceParam:
        return applyTo<SourceParamEvent>(
            event, world.getSource(id),
            [](const auto& e, Source& source) { source.setParam(e.loop, e.pitch); });
    case CmdPlaySource:
        return setState(world.getSource(id), WorldPart::PLAY);
    case CmdPauseSource:
        return setState(world.getSource(id), WorldPart::PAUSE);
    case CmdStopSource:
        return setState(world.getSource(id), WorldPart::STOP);
    case CmdCreateEmitter: {
        const auto* create = dynamic_cast<const CreateEmitterEvent*>(&event);
        return create != nullptr && world.createEmitter(create->labels, id) != nullptr
                   ? Outcome::Applied
                   : Outcome::Invalid;
    }
    case CmdDestroyEmitter:
        return destroy(world.getEmitter(id));
    case CmdSetEmitterParam:
        return applyTo<EmitterParamEvent>(
            event, world.getEmitter(id), [](const auto& e, Emitter& emitter) {
                emitter.setParam(e.paramFlag, e.paramValue, e.gain);
            });
    case CmdSetEmitterConnection: // an unknown source disconnects
        return applyTo<EmitterConnectionEvent>(
            event, world.getEmitter(id), [&world](const auto& e, Emitter& emitter) {
                emitter.setSource(world.getSource(e.sourceId));
            });
    case CmdSetEmitterTransform:
        return applyTo<TransformEvent>(
            event, world.getEmitter(id), [](const auto& e, Emitter& emitter) {
                emitter.setTransform(&e.position, &e.rotation);
            });
    case CmdSetEmitterHull:
        return applyTo<EmitterHullEvent>(
            event, world.getEmitter(id),
            [](const auto& e, Emitter& emitter) { emitter.setHull(e); });
    case CmdPlayEmitter:
        return setState(world.getEmitter(id), WorldPart::PLAY);
    case CmdPauseEmitter:
        return setState(world.getEmitter(id), WorldPart::PAUSE);
    case CmdStopEmitter:
        return setState(world.getEmitter(id), WorldPart::STOP);
    case CmdCreateSource: // a server's sources are its own
        return Outcome::Invalid;
    default:
        return Outcome::Unknown;
    }
}

} // namespace

Server::Server() : Server("", 0) {}

Server::Server(const std::string& host, unsigned short port)
    : multiServer_(std::make_unique<Corvid::MultiServer>(CommandEvent::kProtocolVersion)) {
    multiServer_->setNoDelay(true);
    multiServer_->setDiagnostic(detail::routeDiagnostics("Orvel::Server"));
    multiServer_->open(host, port, true); // a failure is reported as a diagnostic
}

Server::~Server() {
    stop();
    detail::reportPeerLinesLeftOut(true);
}

const Corvid::InetAddress& Server::multicastAddress() const {
    return multiServer_->multicast().address();
}

void Server::setMulticastAddress(const Corvid::InetAddress& address) {
    multiServer_->multicast().setAddress(address);
}

unsigned short Server::multicastPort() const {
    return multiServer_->multicast().port();
}

void Server::setMulticastPort(unsigned short port) {
    multiServer_->multicast().setPort(port);
}

int Server::multicastTtl() const {
    return multiServer_->multicast().ttl();
}

void Server::setMulticastTtl(int ttl) {
    multiServer_->multicast().setTtl(ttl);
}

short Server::id() const {
    return multiServer_->id();
}

void Server::setId(short id) {
    multiServer_->setId(id);
}

void Server::setId(const char* text) {
    setId(idOf(text));
}

short Server::idOf(const char* text) {
    int value = 0;
    if (text != nullptr && *text != '\0') {
        value = static_cast<int>(std::strtol(text, nullptr, 10));
        if (value == 0) {
            unsigned sum = 0; // running over is defined
            for (const char* c = text; *c != '\0'; ++c) {
                sum += static_cast<unsigned>(static_cast<signed char>(*c));
            }
            value = static_cast<int>(sum);
        }
    }
    return static_cast<short>(value);
}

void Server::run() {
    if (thread_ != nullptr) {
        ORVEL_LOG(Fatal, "Orvel::Server thread is already running\n");
        return;
    }
    thread_ = std::make_unique<Vessa::ObjectThread<Server>>(this, &Server::receiveThread);
    thread_->setFailureHandler(detail::routeFailure("Orvel::Server"));
    if (!thread_->start()) {
        ORVEL_LOG(Fatal, "Orvel::Server: the system has no thread left; nothing is received\n");
        thread_.reset();
    }
}

void Server::stop() {
    if (thread_ == nullptr) {
        return;
    }
    stopping_ = true;
    multiServer_->breakWait();
    thread_->join();
    thread_.reset();
    stopping_ = false;
}

int Server::receiveThread() {
    int waiting = 0;
    while (!stopping_ && multiServer_->communicatorsAvail(waiting)) {
        receive(true);
    }
    return 0;
}

int Server::receive(bool block) {
    detail::reportPeerLinesLeftOut();
    int count = 0;
    int waiting = 0;
    Corvid::Communicator* client = nullptr;
    auto hasMore = [&, taken = 0]() mutable {
        return taken++ < kMaxEventsPerReceive && multiServer_->communicatorsAvail(waiting) &&
               waiting > 0;
    };
    while (!stopping_ && (block || hasMore()) && multiServer_->receiveCommunicator(client)) {
        if (receiveFrom(client)) {
            ++count;
            // At once, because a blocking call ends only with the thread. Nobody else writes.
            receivedEvents_.store(
                receivedEvents_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
        }
    }
    return count;
}

/// Takes one event from a client and applies it; false, and the client is gone, if that cannot be.
bool Server::receiveFrom(Corvid::Communicator* client) {
    try {
        if (takeEvent(client)) {
            return true;
        }
        ORVEL_LOG_PEER(LostPeer, Fatal, "Orvel::Server lost client\n");
    } catch (const std::exception& fault) {
        ORVEL_LOG_PEER(
            LostPeer, Fatal, "Orvel::Server drops a client whose event failed: %s\n", fault.what());
    } catch (...) {
        ORVEL_LOG_PEER(LostPeer, Fatal, "Orvel::Server drops a client whose event failed\n");
    }
    clientLost(*client);
    multiServer_->removeCommunicator(client);
    client->close();
    delete client;
    return false;
}

/// False if the client is lost.
bool Server::takeEvent(Corvid::Communicator* client) {
    Corvid::Event* received = nullptr;
    if (!Corvid::Event::receive(client, received) || received == nullptr) {
        return false;
    }
    const std::unique_ptr<Corvid::Event> event(received);
    if (interceptEvent(*event, *client)) {
        return true;
    }
    if (auto* command = asCommand(received)) {
        if (command->command == CmdResetBackend) {
            multiServer_->discardLeftovers(client);
        }
        dispatchEvent(command);
    } else {
        ORVEL_LOG_PEER(
            ForeignEvent, Fatal, "Orvel::Server got Corvid::Event which is not a Orvel::Event\n");
    }
    return true;
}

bool Server::interceptEvent(Corvid::Event& /*event*/, Corvid::Communicator& /*from*/) {
    return false;
}

void Server::clientLost(Corvid::Communicator& /*client*/) {}

bool Server::dispatchEvent(CommandEvent* event) {
    return applyEvent(*this, event);
}

bool Server::applyEvent(World& world, CommandEvent* event) {
    if (event == nullptr) {
        return false;
    }
    const Outcome outcome = apply(world, *event);
    if (outcome == Outcome::Unknown) {
        ORVEL_LOG_PEER(UnknownCommand, Fatal, "Unkown command ID: %d\n", event->command);
    } else if (outcome == Outcome::Invalid) {
        ORVEL_LOG_PEER(
            InvalidEvent, Fatal, "Got invalid Event: %s/%d/%d/%d\n", event->type()->name().c_str(),
            event->command, event->objectId, event->protocolTag);
    }
    return outcome == Outcome::Applied;
}

bool Server::writeLocalData(SourceDataEvent& event, std::string& fileName) {
    const auto dot = event.fileName.rfind('.');
    const std::string extension = dot == std::string::npos ? "" : event.fileName.substr(dot);
    const std::string name = dataDir_ + "OrvelSRC" + std::to_string(event.objectId) + extension;
    if (!event.storeData(name)) {
        return false;
    }
    fileName = name;
    return true;
}

void Server::setSourceDuration(Source& source) {
    SourceDurationEvent event;
    event.address(CmdSetSourceDuration, source.id());
    event.duration = source.duration();
    event.send(multiServer_.get());
}

} // namespace Orvel
