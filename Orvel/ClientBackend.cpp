#include <Orvel/ClientBackend.h>

#include <Corvid/detail/net/Hub.h>
#include <Orvel/BackendState.h>
#include <Orvel/OrvelMultiClient.h>
#include <Orvel/Server.h>
#include <Orvel/detail/KindParams.h>
#include <Orvel/detail/Report.h>
#include <Orvel/detail/net/Changes.h>
#include <Orvel/detail/net/PeerLines.h>
#include <Orvel/detail/net/PlayTimes.h>
#include <Orvel/detail/net/RouteDiagnostics.h>
#include <Orvel/detail/net/SceneSweep.h>
#include <Orvel/detail/net/SceneTime.h>
#include <Orvel/detail/net/SentState.h>
#include <Vessa/ObjectThread.h>

#include <algorithm>
#include <charconv>
#include <exception>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace Orvel {

namespace {

constexpr double kSearchSeconds = 3.0;

using Corvid::Sender;
using detail::sentState;

/// For so long after a question of a server its scene is compared.
constexpr std::chrono::seconds kCheckTime{3};

int idOf(const World& /*world*/) {
    return 0;
}
int idOf(const WorldPart& part) {
    return part.id();
}

/// Fills the event of a change; used for changes and for the replay to a new server.
template <Command command, class Event, class Subject>
void fill(Event& event, Subject& subject, bool transferData) {
    event.address(command, idOf(subject));
    constexpr auto fillValues = detail::kChange<command>.fill;
    fillValues(event, subject);
    if constexpr (std::is_same_v<Event, SourceDataEvent>) {
        if (transferData) {
            event.loadData();
        }
    }
}

void sendState(Sender* to, CommandEvent& event, short command, int id) {
    if (command != 0) {
        event.address(static_cast<Command>(command), id);
        event.send(to);
    }
}

/// Whether a replay of every part with its state leaves a server with these states. It does not if
/// a state was not sent, or spreads from an emitter to its source, and on to the source's other
/// emitters.
bool statesArrive(World& world) {
    const auto isUnsent = [](const auto& entry) {
        return entry.second->state() == WorldPart::NONE &&
               sentState(*entry.second) != WorldPart::NONE;
    };
    const auto spreads = [](const auto& entry) {
        const auto& [id, emitter] = entry;
        return emitter->state() != WorldPart::NONE && emitter->source() != nullptr &&
               emitter->source()->state() != emitter->state();
    };
    return std::ranges::none_of(world.sources(), isUnsent) &&
           std::ranges::none_of(world.emitters(), isUnsent) &&
           std::ranges::none_of(world.emitters(), spreads);
}

void reportInvalid(const CommandEvent& event, Diagnostic::Code code) {
    ORVEL_REPORT_PEER(
        InvalidEvent, Fatal, detail::about(code), "Got invalid Event: %s/%d/%d/%d\n",
        event.type()->name().c_str(), event.command, event.objectId, event.protocolTag);
}

} // namespace

struct ClientBackend::Timing {
    std::chrono::milliseconds latency;
    bool system;          // the clock
    std::int64_t now = 0; // of the latest batch
    detail::PlayTimes played;
    std::chrono::nanoseconds more{}; // added to all times
    bool followUpDue = false;        // the latest update had changes

    void advance() { now = detail::nanosecondsNow(system) + more.count(); }
};

ClientBackend::ClientBackend(World& world, const char* params)
    : Backend(world, params), sweep_(std::make_unique<detail::SceneSweep>()) {
    const auto read = detail::readParams(*this->params(), detail::kClientParams, "ClientBackend");
    transferData_ = read.flag("transferData");
    deferred_ = read.flag("deferred");
    followEnabled_ = read.flag("followEnabled");
    if (const auto latency = std::chrono::milliseconds(read.number("latency"));
        latency > latency.zero()) {
        const std::string clock = read.text("clock");
        if (clock != "measured" && clock != "system") {
            read.refuse("clock", clock, "measured or system");
        }
        timing_ = std::make_unique<Timing>(Timing{latency, clock == "system", 0, {}, {}});
        stampDue_ = true;
    }
    communicator_ = std::make_unique<OrvelMultiClient>(CommandEvent::kProtocolVersion, *this);
    communicator_->setNoDelay(true);
    communicator_->setSearchInterval(kSearchSeconds);
    communicator_->setDiagnostic(detail::routeDiagnostics("ClientBackend"));
    communicator_->setDeferred(deferred_);
    if (read.flag("newestOnly")) {
        communicator_->setNewestOnly(OrvelMultiClient::roleOf);
    }
    communicator_->setFeatures(DriverEvent::kFeature | CheckEvent::kFeature);
    configure(read);
    if (read.isSet("key")) {
        communicator_->setKeys(read.text("key")); // reports a problem
    }
    communicator_->open();
    thread_ =
        std::make_unique<Vessa::ObjectThread<ClientBackend>>(this, &ClientBackend::receiveThread);
    thread_->setFailureHandler(detail::routeFailure("ClientBackend"));
    if (!thread_->start()) {
        ORVEL_REPORT(
            Fatal, detail::about(Diagnostic::Code::Thread),
            "ClientBackend: cannot start a thread; no server will be reached\n");
    }
}

ClientBackend::ClientBackend(const ClientBackend& other) : Backend(other) {}

ClientBackend::~ClientBackend() {
    ClientBackend::resetBackend();
    detail::reportPeerLinesLeftOut(true);
    if (thread_ != nullptr) {
        communicator_->breakWait();
        thread_->join();
        thread_.reset();
    }
    if (communicator_ != nullptr) {
        communicator_->close();
        communicator_.reset();
    }
}

/// Applies the search parameters. Those not set keep the process's defaults.
void ClientBackend::configure(const Config::ParamReader& read) {
    Corvid::Multicast& multicast = communicator_->multicast();
    if (const std::string group = read.text("group"); read.isSet("group")) {
        if (const auto address = Corvid::InetAddress::getByAddress(group); address.isMulticast()) {
            multicast.setAddress(address);
        } else {
            read.refuse("group", group, "a multicast address from 224.0.0.0 to 239.255.255.255");
        }
    }
    if (read.isSet("port")) {
        multicast.setPort(static_cast<std::uint16_t>(read.number("port")));
    }
    if (read.isSet("ttl")) {
        multicast.setTtl(static_cast<int>(read.number("ttl")));
    }
    std::vector<Corvid::InetAddress> interfaces;
    std::vector<std::string> names;
    for (const std::string& item : read.list("interfaces")) {
        if (!Corvid::Multicast::readInterface(item, interfaces, names)) {
            read.refuse("interfaces", item, "the IPv4 address or the name of an interface");
        }
    }
    multicast.setInterfaces(std::move(interfaces), std::move(names));
    std::vector<short> ids;
    for (const std::string& item : read.list("only")) {
        ids.push_back(Server::idOf(item.c_str()));
    }
    communicator_->setServerIds(std::move(ids));
    for (const std::string& item : read.list("servers")) {
        const auto colon = item.rfind(':');
        unsigned short port = 0;
        if (colon != std::string::npos && colon != 0) {
            const char* const end = item.data() + item.size();
            const auto [last, error] = std::from_chars(item.data() + colon + 1, end, port);
            port = error == std::errc() && last == end ? port : 0;
        }
        if (port != 0) {
            communicator_->connectToServer(item.substr(0, colon), port);
        } else {
            read.refuse("servers", item, "HOST:PORT");
        }
    }
}

template <Command command, class Subject>
[[gnu::always_inline]] inline void ClientBackend::sendChange(Subject& subject) {
    stamp();
    detail::EventOfCommand<command> event;
    fill<command>(event, subject, transferData_);
    if constexpr (detail::kHasFixedFields<decltype(event)>) {
        if (communicator_ != nullptr) {
            detail::withFrame(
                event, [this]<std::size_t size>(const auto& write) __attribute__((always_inline)) {
                    communicator_->hub().sendFixed<size>(write);
                });
        }
    } else {
        event.send(communicator_.get());
    }
}

void ClientBackend::resetBackend() {
    destroyedSources_.clear();
    if (timing_ != nullptr) {
        timing_->played.clear();
    }
    sendChange<CmdResetBackend>(world());
}

bool ClientBackend::sendsEnabled() {
    return enabled() && (!followEnabled_ || world().enabled());
}

void ClientBackend::setEnabled() {
    sendsEnabled() ? sendChange<CmdEnable>(world()) : sendChange<CmdDisable>(world());
}

void ClientBackend::setListenerTransform() {
    sendChange<CmdSetListenerTransform>(world());
}

void ClientBackend::createSource(Source& source) {
    sendChange<CmdCreateSource>(source);
}

void ClientBackend::destroySource(Source& source) {
    destroyedSources_.insert(static_cast<short>(source.id()));
    sendChange<CmdDestroySource>(source);
    if (timing_ != nullptr) {
        timing_->played.forget(source);
    }
}

void ClientBackend::setSourceData(Source& source) {
    ORVEL_REPORT(
        Fatal, detail::about(Diagnostic::Code::SoundNotSent, source),
        "ClientBackend::setSourceData() not implemented\n");
}

void ClientBackend::setSourceParam(Source& source) {
    sendChange<CmdSetSourceParam>(source);
    if (timing_ != nullptr) {
        timing_->played.setSourceParam(source, timing_->now);
    }
}

void ClientBackend::setSourceState(Source& source) {
    stamp();
    CommandEvent event;
    sendState(communicator_.get(), event, sourceState2Command(source.state()), source.id());
}

void ClientBackend::createEmitter(Emitter& emitter) {
    sendChange<CmdCreateEmitter>(emitter);
}

void ClientBackend::destroyEmitter(Emitter& emitter) {
    sendChange<CmdDestroyEmitter>(emitter);
    if (timing_ != nullptr) {
        timing_->played.forget(emitter);
    }
}

void ClientBackend::setEmitterTransform(Emitter& emitter) {
    sendChange<CmdSetEmitterTransform>(emitter);
}

void ClientBackend::setEmitterHull(Emitter& emitter) {
    sendChange<CmdSetEmitterHull>(emitter);
}

void ClientBackend::setEmitterParam(Emitter& emitter) {
    sendChange<CmdSetEmitterParam>(emitter);
}

void ClientBackend::setEmitterConnection(Emitter& emitter) {
    sendChange<CmdSetEmitterConnection>(emitter);
    if (timing_ != nullptr) {
        timing_->played.setEmitterConnection(emitter);
    }
}

void ClientBackend::setEmitterState(Emitter& emitter) {
    stamp();
    CommandEvent event;
    sendState(communicator_.get(), event, emitterState2Command(emitter.state()), emitter.id());
    if (timing_ != nullptr) {
        timing_->played.setEmitterState(emitter, timing_->now);
    }
}

bool ClientBackend::update() {
    deliver();
    if (checksUntil_.load(std::memory_order_relaxed) != 0) {
        sendChecks();
    }
    if (timing_ != nullptr) {
        followUp();
    }
    if (communicator_ != nullptr) {
        communicator_->endBatch();
    }
    stampDue_ = timing_ != nullptr;
    return Backend::update();
}

BackendType* ClientBackend::type() {
    return &_type;
}

int ClientBackend::deliver() {
    if (!deferred_) {
        return 0;
    }
    return communicator_->deliver(
        [this](Corvid::Communicator* connection) { receiveFrom(connection); });
}

Corvid::MultiClient& ClientBackend::multiClient() const {
    return *communicator_;
}

std::chrono::nanoseconds ClientBackend::latency() const noexcept {
    return timing_ == nullptr ? std::chrono::nanoseconds() : timing_->latency + timing_->more;
}

void ClientBackend::raiseLatency(std::chrono::nanoseconds latency) {
    if (timing_ != nullptr) {
        timing_->more = std::max(timing_->more, latency - timing_->latency);
        stampDue_ = true;
    }
}

std::chrono::nanoseconds ClientBackend::neededLatency() const {
    const Vessa::Lock lock(mutex_);
    float most = 0.0F;
    for (const auto& [server, lead] : leads_) {
        most = std::max(most, lead);
    }
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<float>(most));
}

std::chrono::steady_clock::time_point ClientBackend::changeTime() const {
    std::chrono::nanoseconds time{timing_ == nullptr ? 0 : timing_->now};
    if (timing_ != nullptr && timing_->system) {
        time +=
            std::chrono::nanoseconds(detail::nanosecondsNow(false) - detail::nanosecondsNow(true));
    }
    return std::chrono::steady_clock::time_point(time);
}

std::size_t ClientBackend::serversNotReady() const {
    const Vessa::Lock lock(mutex_);
    return notReady_.size();
}

/// Sends the time of the changes that follow.
void ClientBackend::sendTime() {
    stampDue_ = false;
    timing_->advance();
    TimeEvent event;
    event.address(CmdSetTime, 0);
    event.time = static_cast<unsigned long>(timing_->now);
    std::vector<std::byte> frame;
    event.encode(frame);
    communicator_->sendFrameTo(ClockEvent::kFeature, frame.data(), frame.size());
}

/// Sends a time without changes at the first update that follows one with changes. If a segment is
/// lost, TCP learns it from one that arrives later, and otherwise only after some 200 ms, which is
/// too late for most latencies.
void ClientBackend::followUp() {
    if (!stampDue_) {
        timing_->followUpDue = true;
    } else if (std::exchange(timing_->followUpDue, false)) {
        sendTime();
    }
}

/// Sends the next hashes of parts, as servers have asked for them.
void ClientBackend::sendChecks() {
    const auto now = detail::SceneSweep::Clock::now();
    if (detail::nanosecondsOf(now) > checksUntil_) {
        checksUntil_ = 0;
        return;
    }
    if (!replay_.tryLock()) { // the check would arrive in the middle of it
        return;
    }
    const Vessa::Lock lock(replay_, std::adopt_lock);
    const bool isSwitchSent = followEnabled_ || !sendsEnabled();
    CheckEvent event;
    event.address(CmdCheckParts, 0);
    if (sweep_->next(
            event, world(), now, isSwitchSent ? std::optional(sendsEnabled()) : std::nullopt)) {
        stamp();
        std::vector<std::byte> frame;
        event.encode(frame);
        communicator_->hub().sendFrameTo(CheckEvent::kFeature, frame.data(), frame.size(), false);
    }
}

/// Begins the replay to a server that keeps times.
void ClientBackend::sendOffer(Corvid::Communicator& connection) {
    const Corvid::Communicator::ClockOffer offer = connection.clockOffer();
    ClockEvent clock;
    clock.address(CmdOfferClock, 0);
    clock.nonce = offer.nonce;
    clock.port = offer.port;
    clock.system = timing_->system;
    clock.latency = static_cast<unsigned long>(std::chrono::nanoseconds(timing_->latency).count());
    clock.send(&connection);
    timing_->advance();
    TimeEvent time;
    time.address(CmdSetTime, 0);
    time.time = static_cast<unsigned long>(timing_->now);
    time.send(&connection);
}

bool ClientBackend::addCommunicator(Corvid::Communicator* connection) {
    const Vessa::Lock replay(replay_);
    const bool timed = timing_ != nullptr && (connection->features() & ClockEvent::kFeature) != 0;
    if (timed) {
        sendOffer(*connection);
    }
    sendScene(connection, false);
    const auto isBack = [this](const auto& entry) {
        return destroyedSources_.contains(static_cast<short>(entry.first));
    };
    CommandEvent command;
    if (!statesArrive(world()) || std::ranges::any_of(world().sources(), isBack)) {
        sendScene(connection, true);
    } else {
        for (const short id : destroyedSources_) {
            command.address(CmdDestroySource, id);
            command.send(connection);
        }
    }
    // A server is enabled unless a client, perhaps an earlier one, has disabled it.
    if (followEnabled_ || !sendsEnabled()) {
        command.address(sendsEnabled() ? CmdEnable : CmdDisable, 0);
        command.send(connection);
    }
    if (timed) {
        command.address(CmdEndReplay, 0);
        command.send(connection);
        stampDue_ = true; // what follows happens later
        const Vessa::Lock lock(mutex_);
        notReady_.insert(connection);
    }
    return true;
}

/// Sends the replay of the scene. `exactly`: with the states of the other servers, without
/// spreading, and without the sources that they no longer have.
void ClientBackend::sendScene(Corvid::Communicator* connection, bool exactly) {
    const bool timed = timing_ != nullptr && (connection->features() & ClockEvent::kFeature) != 0;
    detail::Events events; // reused for each part
    auto& command = std::get<CommandEvent>(events);
    // `before` is called with the command of each row.
    const auto replay = [&]<class Subject>(Subject& subject, auto before) {
        detail::forEachChange([&]<class Row>(const Row& row) {
            if constexpr (std::is_same_v<typename Row::Subject, Subject>) {
                if (row.replay == detail::Replay::Yes) {
                    before(Row::kCommand);
                    auto& event = std::get<typename Row::Event>(events);
                    fill<Row::kCommand>(event, subject, transferData_);
                    event.send(connection);
                }
            }
        });
    };
    const auto nothing = [](Command /*command*/) {};
    replay(world(), nothing);
    if (exactly) {
        for (const short id : destroyedSources_) {
            command.address(CmdDestroySource, id);
            command.send(connection);
        }
    }
    for (const auto& [id, source] : world().sources()) {
        replay(*source, nothing);
        const auto state = exactly ? sentState(*source) : source->state();
        sendState(connection, command, sourceState2Command(state), id);
    }
    for (const auto& [id, emitter] : world().emitters()) {
        const auto state = exactly ? sentState(*emitter) : emitter->state();
        const auto sendItsState = [&, id = id, emitter = emitter] {
            const auto position =
                timed ? timing_->played.position(*emitter, timing_->now) : std::nullopt;
            if (position) {
                PositionEvent event;
                event.address(CmdSetEmitterPosition, id);
                event.position = static_cast<unsigned long>(*position);
                event.send(connection);
            }
            sendState(connection, command, emitterState2Command(state), id);
        };
        // A state that differs from the source's is sent first, so that it does not spread. An
        // equal one is sent last, because connecting would silence a playing emitter.
        const bool stateFirst =
            exactly && emitter->source() != nullptr && sentState(*emitter->source()) != state;
        replay(*emitter, [&](Command next) {
            if (stateFirst && next == CmdSetEmitterConnection) {
                sendItsState();
            }
        });
        if (!stateFirst) {
            sendItsState();
        }
    }
}

BackendState ClientBackend::state() const {
    BackendState state;
    state.working = communicator_ != nullptr;
    if (state.working) {
        state.network = {true, communicator_->id(), communicator_->counters()};
    }
    return state;
}

int ClientBackend::receiveThread() {
    Corvid::Communicator* connection = nullptr;
    while (communicator_->waitForCommunicators() &&
           communicator_->receiveCommunicator(connection)) {
        receiveFrom(connection);
    }
    Diagnostic diagnostic = detail::about(Diagnostic::Code::ReceiveEnded);
    diagnostic.level = Log::Level::Info;
    diagnostic.text = "exit ClientBackend::receiveThread";
    if (!detail::isHandled(diagnostic)) {
        std::cout << "INFO: exit ClientBackend::receiveThread" << std::endl;
    }
    return 0;
}

void ClientBackend::receiveFrom(Corvid::Communicator* connection) {
    try {
        if (takeEvent(connection)) {
            return;
        }
        ORVEL_REPORT_PEER(
            LostPeer, Fatal, detail::about(Diagnostic::Code::LostPeer),
            "ClientBackend: Lost server\n");
    } catch (const std::exception& fault) {
        ORVEL_REPORT_PEER(
            LostPeer, Fatal, detail::about(Diagnostic::Code::InvalidEvent, {}, {}, fault.what()),
            "ClientBackend: dropping a server because its event failed: %s\n", fault.what());
    } catch (...) {
        ORVEL_REPORT_PEER(
            LostPeer, Fatal, detail::about(Diagnostic::Code::InvalidEvent),
            "ClientBackend: dropping a server because its event failed\n");
    }
    {
        const Vessa::Lock lock(mutex_);
        notReady_.erase(connection);
        leads_.erase(connection);
    }
    communicator_->removeCommunicator(connection);
    connection->close();
    delete connection;
}

/// Returns false if the server is lost.
bool ClientBackend::takeEvent(Corvid::Communicator* connection) {
    Corvid::Event* received = nullptr;
    if (!Corvid::Event::receive(connection, received) || received == nullptr) {
        return false;
    }
    const std::unique_ptr<Corvid::Event> event(received);
    if (const auto* driver = dynamic_cast<const DriverEvent*>(event.get())) {
        takeDriver(*driver, *connection);
    } else if (const auto* timing = dynamic_cast<const TimingEvent*>(event.get())) {
        takeTiming(*timing, *connection);
    } else if (const auto* clock = dynamic_cast<const ClockEvent*>(event.get())) {
        answer(*clock, *connection);
    } else if (auto* command = dynamic_cast<CommandEvent*>(event.get())) {
        if (command->command == CmdAskChecks) {
            checksUntil_ = detail::nanosecondsOf(std::chrono::steady_clock::now() + kCheckTime);
        } else {
            dispatchEvent(command);
        }
    } else {
        ORVEL_REPORT_PEER(
            ForeignEvent, Fatal, detail::about(Diagnostic::Code::InvalidEvent),
            "Orvel::ClientBackend got Corvid::Event which is not a Orvel::Event\n");
    }
    return true;
}

void ClientBackend::setDriverHandler(DriverHandler handler) {
    const Vessa::Lock lock(mutex_);
    driverHandler_ = std::move(handler);
}

void ClientBackend::takeDriver(const DriverEvent& event, Corvid::Communicator& server) {
    const std::string name = server.counters().peer;
    DriverHandler handler;
    {
        const Vessa::Lock lock(mutex_);
        handler = driverHandler_;
    }
    if (handler) {
        handler(event, name);
    } else if (event.state == DriverEvent::Replaced || event.state == DriverEvent::Refused) {
        ORVEL_REPORT(
            Warning, detail::about(Diagnostic::Code::NotDriving, {}, name, event.text),
            "ClientBackend: does not drive the server %s: %s\n", name.c_str(), event.text.c_str());
    }
    if (event.state == DriverEvent::Free) {
        addCommunicator(&server);
    }
}

/// Answers a question about this machine's clock.
void ClientBackend::answer(const ClockEvent& question, Corvid::Communicator& server) {
    if (question.command != CmdAskClock) {
        reportInvalid(question, Diagnostic::Code::InvalidEvent);
        return;
    }
    ClockEvent event;
    event.address(CmdAnswerClock, 0);
    event.number = question.number;
    event.received = static_cast<unsigned long>(detail::nanosecondsOf(server.lastArrival()));
    event.sent = static_cast<unsigned long>(detail::nanosecondsNow(false));
    event.send(&server);
}

void ClientBackend::takeTiming(const TimingEvent& event, Corvid::Communicator& server) {
    server.setTiming(event.timing());
    const Vessa::Lock lock(mutex_);
    leads_[&server] = event.lead > 0.0F && event.lead < kMaxLead ? event.lead : 0.0F;
    if (event.ready) {
        notReady_.erase(&server);
    }
}

bool ClientBackend::dispatchEvent(CommandEvent* event) {
    if (event == nullptr) {
        return false;
    }
    Diagnostic::Code code = Diagnostic::Code::InvalidEvent;
    if (event->command == CmdSetSourceDuration) {
        const auto* duration = dynamic_cast<const SourceDurationEvent*>(event);
        Source* source = world().getSource(event->objectId);
        if (duration != nullptr && source != nullptr) {
            setSourceDuration(*source, duration->duration);
            return true;
        }
        if (duration != nullptr) {
            code = Diagnostic::Code::UnknownSource;
        }
    } else {
        ORVEL_REPORT_PEER(
            UnknownCommand, Fatal, detail::about(Diagnostic::Code::InvalidEvent),
            "Unkown command ID: %d\n", event->command);
    }
    reportInvalid(*event, code);
    return false;
}

short ClientBackend::sourceState2Command(WorldPart::State state) {
    switch (state) {
    case WorldPart::NONE:
        return 0;
    case WorldPart::PLAY:
        return CmdPlaySource;
    case WorldPart::PAUSE:
        return CmdPauseSource;
    case WorldPart::STOP:
        return CmdStopSource;
    }
    ORVEL_REPORT(
        Fatal, detail::about(Diagnostic::Code::Misuse),
        "Unknown Orvel::WorldPart::source state: %i\n", static_cast<int>(state));
    return 0;
}

short ClientBackend::emitterState2Command(WorldPart::State state) {
    switch (state) {
    case WorldPart::NONE:
        return 0;
    case WorldPart::PLAY:
        return CmdPlayEmitter;
    case WorldPart::PAUSE:
        return CmdPauseEmitter;
    case WorldPart::STOP:
        return CmdStopEmitter;
    }
    ORVEL_REPORT(
        Fatal, detail::about(Diagnostic::Code::Misuse),
        "Unknown Orvel::WorldPart::emitter state: %i\n", static_cast<int>(state));
    return 0;
}

Backend* ClientBackend::createMethod(World& world, const char* params) {
    try {
        return new ClientBackend(world, params);
    } catch (const std::system_error& error) { // no descriptor is left for the thread's wake-up
        ORVEL_REPORT(
            Fatal, detail::about(Diagnostic::Code::Thread, {}, {}, error.what()),
            "ClientBackend: no server will be reached: %s\n", error.what());
        return nullptr;
    }
}

} // namespace Orvel
