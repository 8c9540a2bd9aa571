#include <Orvel/Server.h>

#include <Corvid/MultiServer.h>
#include <Orvel/detail/Report.h>
#include <Orvel/detail/net/Changes.h>
#include <Orvel/detail/net/HeldEvents.h>
#include <Orvel/detail/net/PartHash.h>
#include <Orvel/detail/net/PeerLines.h>
#include <Orvel/detail/net/RouteDiagnostics.h>
#include <Vessa/ObjectThread.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <limits>
#include <map>
#include <set>
#include <span>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

namespace Orvel {

namespace {

enum class Outcome { Applied, Invalid, Unknown };

/// A dynamic_cast to the class of a command's event; most events are exactly of that class.
template <class EventClass>
EventClass* as(CommandEvent& event) {
    return typeid(event) == typeid(EventClass) ? static_cast<EventClass*>(&event)
                                               : dynamic_cast<EventClass*>(&event);
}
template <>
CommandEvent* as(CommandEvent& event) {
    return &event;
}

template <class Part>
Part* find(World& world, int id) {
    if constexpr (std::is_same_v<Part, World>) {
        return &world;
    } else if constexpr (std::is_same_v<Part, Source>) {
        return world.getSource(id);
    } else {
        return world.getEmitter(id);
    }
}

/// Applies a command's event, if its class is right and the part exists.
template <class Row>
Outcome applyAs(World& world, CommandEvent& event) {
    using Apply = decltype(Row::apply);
    using Event = typename Row::Event;
    using Target = std::conditional_t<
        std::is_invocable_v<Apply, Event&, World&>, World, typename Row::Subject>;
    auto* concrete = as<Event>(event);
    auto* target = find<Target>(world, event.objectId);
    if (concrete == nullptr || target == nullptr) {
        return Outcome::Invalid;
    }
    constexpr auto apply = detail::kChange<Row::kCommand>.apply;
    if constexpr (std::is_same_v<std::invoke_result_t<Apply, Event&, Target&>, bool>) {
        return apply(*concrete, *target) ? Outcome::Applied : Outcome::Invalid;
    } else {
        apply(*concrete, *target);
        return Outcome::Applied;
    }
}

/// The library's events are decoded in place: allocating one would cost as much as applying it.
template <class Take, class EventClass>
bool decodeAs(std::span<const std::byte> frame, std::string& fault, const Take& take) {
    EventClass event;
    if (!event.decodeFrom(frame, &fault)) {
        return false;
    }
    take(event, &event);
    return true;
}

/// Others are allocated by their type.
template <class Take>
bool decodeOther(std::span<const std::byte> frame, std::string& fault, const Take& take) {
    const std::unique_ptr<Corvid::Event> event(Corvid::Event::decode(frame, &fault));
    if (event == nullptr) {
        return false;
    }
    take(*event, dynamic_cast<CommandEvent*>(event.get()));
    return true;
}

/// Decodes a frame and passes the event to `take`, as a command too if it is one. Returns false if
/// it is malformed, with the reason.
template <class Take>
bool decode(std::span<const std::byte> frame, std::string& fault, const Take& take) {
    struct Row {
        const Corvid::EventType* type;
        bool (*decode)(std::span<const std::byte>, std::string&, const Take&);
    };
    constexpr short kFirst = 200;
#define ORVEL_ROW(class_, number) rows[(number)-kFirst] = {&class_::_type, &decodeAs<Take, class_>};
    static constexpr auto kRows = [] {
        std::array<Row, 16> rows{};
        ORVEL_EVENTS(ORVEL_ROW)
        return rows;
    }();
#undef ORVEL_ROW
    const Corvid::EventType* type = Corvid::Event::typeOf(frame, &fault);
    if (type == nullptr) {
        return false;
    }
    const auto row = static_cast<std::size_t>(type->typeId() - kFirst);
    return row < kRows.size() && kRows[row].type == type ? kRows[row].decode(frame, fault, take)
                                                         : decodeOther(frame, fault, take);
}

std::string nameOf(CheckEvent::Kind kind) {
    switch (kind) {
    case CheckEvent::Kind::Switch:
        return "whether it is enabled";
    case CheckEvent::Kind::Listener:
        return "listener";
    case CheckEvent::Kind::Source:
        return "source";
    case CheckEvent::Kind::Emitter:
        return "emitter";
    }
    return "part";
}

constexpr auto kAppliers = detail::byCommand<Outcome (*)(World&, CommandEvent&)>(
    []<class Row>(const Row& /*row*/) { return &applyAs<Row>; });

Outcome apply(World& world, CommandEvent& event) {
    const auto command = static_cast<std::size_t>(static_cast<unsigned short>(event.command));
    return command < kAppliers.size() && kAppliers[command] != nullptr
               ? kAppliers[command](world, event)
               : Outcome::Unknown;
}

} // namespace

struct Server::Timing {
    std::chrono::nanoseconds delay{};
    std::map<Corvid::Communicator*, detail::HeldEvents> held; // by client
    detail::HeldEvents::Clock::time_point nextReport;
};

/// What is known about the differences from the clients' scenes, for some time after a question.
struct Server::Comparison {
    using Clock = std::chrono::steady_clock;
    using Part = std::pair<CheckEvent::Kind, short>;
    static constexpr std::chrono::seconds kTime{3};
    static constexpr std::chrono::seconds kInterval{1}; // between two questions to clients

    struct Difference {
        const char* how; // behind the part's name
        unsigned sweep;  // that has found it last
    };
    struct Client {
        unsigned sweep = 0;   // the number of the current one
        unsigned next = 0;    // the number of its next event
        bool isWhole = false; // all of its events so far have come
        unsigned parts = 0;   // in it
        unsigned sweeps = 0;  // that were whole
        unsigned partsOfWhole = 0;
        std::map<Part, Difference> differences;
    };

    Clock::time_point end;
    Clock::time_point nextQuestion;
    std::map<const Corvid::Communicator*, Client> clients;
};

Server::Server() : Server("", 0) {}

Server::Server(const std::string& host, unsigned short port)
    : multiServer_(std::make_unique<Corvid::MultiServer>(CommandEvent::kProtocolVersion)) {
    multiServer_->setNoDelay(true);
    multiServer_->setFeatures(CheckEvent::kFeature);
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
            unsigned sum = 0; // wrapping is defined
            for (const char* c = text; *c != '\0'; ++c) {
                sum += static_cast<unsigned>(static_cast<signed char>(*c));
            }
            value = static_cast<int>(sum);
        }
    }
    return static_cast<short>(value);
}

bool Server::setKeys(const std::string& path) {
    return multiServer_->setKeys(path);
}

void Server::run() {
    if (thread_ != nullptr) {
        ORVEL_REPORT(
            Fatal, detail::about(Diagnostic::Code::Misuse),
            "Orvel::Server thread is already running\n");
        return;
    }
    thread_ = std::make_unique<Vessa::ObjectThread<Server>>(this, &Server::receiveThread);
    thread_->setFailureHandler(detail::routeFailure("Orvel::Server"));
    if (!thread_->start()) {
        ORVEL_REPORT(
            Fatal, detail::about(Diagnostic::Code::Thread),
            "Orvel::Server: cannot start a thread; nothing will be received\n");
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
    int left = kMaxEventsPerReceive;
    const auto hasMore = [&] {
        return left > 0 && multiServer_->communicatorsAvail(waiting) && waiting > 0;
    };
    while (!stopping_ && (block || hasMore()) && multiServer_->receiveCommunicator(client)) {
        while (client != nullptr) {
            left -= block ? 0 : 1;
            if (receiveFrom(client)) {
                ++count;
                // Updated at once, because a blocking call returns only with the thread. No other
                // thread writes.
                receivedEvents_.store(
                    receivedEvents_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
            }
            client = !stopping_ && left > 0 ? multiServer_->communicatorInTurn() : nullptr;
        }
    }
    if (!block && timing_ != nullptr) {
        count += applyDue(kMaxEventsPerReceive); // however many have arrived
    }
    return count;
}

/// Applies one event of a client. Returns false if the client is lost.
bool Server::receiveFrom(Corvid::Communicator* client) {
    try {
        if (takeEvent(*client)) {
            return true;
        }
        ORVEL_REPORT_PEER(
            LostPeer, Fatal, detail::about(Diagnostic::Code::LostPeer),
            "Orvel::Server lost client\n");
    } catch (const std::exception& fault) {
        ORVEL_REPORT_PEER(
            LostPeer, Fatal, detail::about(Diagnostic::Code::InvalidEvent, {}, {}, fault.what()),
            "Orvel::Server dropping a client because its event failed: %s\n", fault.what());
    } catch (...) {
        ORVEL_REPORT_PEER(
            LostPeer, Fatal, detail::about(Diagnostic::Code::InvalidEvent),
            "Orvel::Server dropping a client because its event failed\n");
    }
    applyRest(*client);
    if (comparison_ != nullptr) {
        comparison_->clients.erase(client);
    }
    if (observer_ != nullptr) {
        observer_->lost(client->counters().peer);
    }
    clientLost(*client);
    multiServer_->removeCommunicator(client);
    client->close();
    delete client;
    return false;
}

/// Returns false if the client is lost.
bool Server::takeEvent(Corvid::Communicator& client) {
    std::span<const std::byte> frame;
    if (!client.receiveFrame(frame)) {
        return false;
    }
    return (timing_ != nullptr && hold(frame, client)) || applyFrame(frame, client);
}

bool Server::applyFrame(std::span<const std::byte> frame, Corvid::Communicator& client) {
    std::string fault;
    const bool isWhole = decode(frame, fault, [&](Corvid::Event& event, CommandEvent* command) {
        take(event, command, client);
    });
    if (!isWhole) {
        client.refuseFrame(fault);
    }
    return isWhole;
}

/// Applies an event that has arrived; `command` is the same one, or null if it is of a foreign
/// class.
void Server::take(Corvid::Event& event, CommandEvent* command, Corvid::Communicator& client) {
    const short number = command != nullptr ? command->command : short{0};
    if (number == CmdAskDifferences) {
        answerDifferences(client);
        return;
    }
    if (!client.mayDrive()) {
        watcherSent(event, client);
        return;
    }
    if (number == CmdCheckParts) {
        if (const auto* check = dynamic_cast<const CheckEvent*>(command)) {
            compare(*check, client);
            return;
        }
    }
    if (observer_ != nullptr) {
        observer_->received(event, client.counters().peer);
    }
    if (interceptEvent(event, client)) {
        return;
    }
    if (command != nullptr) {
        if (command->command == CmdResetBackend) {
            multiServer_->discardLeftovers(&client);
            discardHeld(client);
        }
        dispatchEvent(command);
    } else {
        ORVEL_REPORT_PEER(
            ForeignEvent, Fatal, detail::about(Diagnostic::Code::InvalidEvent),
            "Orvel::Server got Corvid::Event which is not a Orvel::Event\n");
    }
}

void Server::Observer::setTime(std::optional<std::chrono::steady_clock::time_point> /*time*/) {}

// Times

void Server::setTimed(std::chrono::nanoseconds delay) {
    timing_ = std::make_unique<Timing>();
    timing_->delay = delay;
    multiServer_->setFeatures(ClockEvent::kFeature | CheckEvent::kFeature);
}

bool Server::isTimed() const noexcept {
    return timing_ != nullptr && !timing_->held.empty();
}

bool Server::isTimed(Corvid::Communicator& client) const {
    return isTimed() && timing_->held.contains(&client);
}

bool Server::knowsClockOf(Corvid::Communicator& client) const {
    return isTimed(client) && timing_->held.at(&client).isReady();
}

std::optional<std::chrono::steady_clock::time_point> Server::nextDue() {
    std::optional<detail::HeldEvents::Clock::time_point> next;
    if (isTimed()) {
        const Lead ahead = lead();
        for (const auto& [client, held] : timing_->held) {
            const auto due =
                held.nextTaken(client->clock(), timing_->delay, {ahead.start, ahead.value});
            next = due && (!next || *due < *next) ? due : next;
        }
    }
    return next;
}

/// Takes an event about times, or an event that happens at a time. Returns false if it is to be
/// applied at once.
bool Server::hold(std::span<const std::byte> frame, Corvid::Communicator& client) {
    constexpr std::size_t kType = 4; // behind the length
    short type = 0;
    std::memcpy(&type, frame.data() + kType, sizeof type);
    if (type == CommandEvent::_type.typeId()) {
        CommandEvent event;
        if (event.decodeFrom(frame) && event.command == CmdAskTiming) {
            answerTiming(client);
            return true;
        }
    }
    if (!client.mayDrive()) {
        return false;
    }
    const auto held = timing_->held.find(&client);
    if (type == TimeEvent::_type.typeId()) {
        TimeEvent event;
        if (held == timing_->held.end() || !event.decodeFrom(frame)) {
            return false;
        }
        held->second.beginBatch(static_cast<std::int64_t>(event.time), client.lastArrival());
        return true;
    }
    if (type == ClockEvent::_type.typeId()) {
        ClockEvent event;
        if (!event.decodeFrom(frame)) {
            return false;
        }
        if (event.command == CmdOfferClock && held == timing_->held.end()) {
            timing_->held.try_emplace(&client, event, client.lastArrival());
            if (!event.system) {
                multiServer_->measureClock(
                    client, {event.nonce, static_cast<std::uint16_t>(event.port)},
                    [&client](std::uint32_t number) {
                        ClockEvent question;
                        question.address(CmdAskClock, 0);
                        question.number = number;
                        question.send(&client);
                    });
            }
        } else if (event.command == CmdAnswerClock) {
            client.takeClockAnswer(
                event.number, static_cast<std::int64_t>(event.received),
                static_cast<std::int64_t>(event.sent));
        }
        return true;
    }
    return held != timing_->held.end() && held->second.hold(frame);
}

/// Applies held events that are due, about `most`. Returns their number.
int Server::applyDue(int most) {
    using Clock = detail::HeldEvents::Clock;
    int count = 0;
    const Lead ahead = timing_->held.empty() ? Lead() : lead();
    // In the order in which they came, which decides who drives.
    auto oldest = Clock::time_point::max(); // of those that are not ready
    for (const auto& [client, held] : timing_->held) {
        oldest = held.isReady() ? oldest : std::min(oldest, held.offered());
    }
    for (auto& [client, held] : timing_->held) {
        if (held.offered() <= oldest && held.becomesReady(client->clock(), Clock::now())) {
            timing_->nextReport = {}; // the client may wait for it
        }
    }
    while (count < most) {
        Corvid::Communicator* first = nullptr;
        auto earliest = Clock::time_point::max();
        for (const auto& [client, held] : timing_->held) {
            const auto next =
                held.isReady()
                    ? held.nextTaken(client->clock(), timing_->delay, {ahead.start, ahead.value})
                    : std::nullopt;
            if (next && *next < earliest) {
                earliest = *next;
                first = client;
            }
        }
        if (first == nullptr || earliest > Clock::now()) {
            break;
        }
        const auto due = timing_->held.at(first).nextDue(first->clock(), timing_->delay);
        count += applyBatch(*first, *due, most - count);
    }
    if (const auto now = Clock::now(); now >= timing_->nextReport) {
        timing_->nextReport = now + std::chrono::seconds(1);
        reportTimings();
    }
    return count;
}

/// Applies a client's next batch, or `most` events of it. Returns their number.
int Server::applyBatch(
    Corvid::Communicator& client, std::chrono::steady_clock::time_point due, int most) {
    detail::HeldEvents& held = timing_->held.at(&client);
    const bool begins = held.isAtBegin();
    const auto lateness = beginDue(due, held.arrived());
    if (observer_ != nullptr) {
        observer_->setTime(due + std::max(lateness, std::chrono::nanoseconds::zero()));
    }
    if (begins) {
        held.count(lateness, detail::HeldEvents::Clock::now());
    }
    int count = 0;
    try {
        while (count < most && held.hasNext()) {
            ++count;
            if (!applyFrame(held.take(), client)) {
                held.clear(); // it is lost
            }
        }
    } catch (const std::exception& fault) {
        ORVEL_REPORT_PEER(
            LostPeer, Fatal, detail::about(Diagnostic::Code::InvalidEvent, {}, {}, fault.what()),
            "Orvel::Server dropping a client because its event failed: %s\n", fault.what());
        held.clear();
        client.close();
    }
    held.endBatch();
    endDue();
    if (observer_ != nullptr) {
        observer_->setTime(std::nullopt);
    }
    return count;
}

/// Applies all held events of a client that is gone.
void Server::applyRest(Corvid::Communicator& client) {
    if (timing_ == nullptr || !timing_->held.contains(&client)) {
        return;
    }
    while (!timing_->held.at(&client).isEmpty()) {
        applyBatch(client, detail::HeldEvents::Clock::now(), kMaxEventsPerReceive);
    }
    timing_->held.erase(&client);
}

/// A client has started a new scene: forgets what earlier ones that are gone have left.
void Server::discardHeld(const Corvid::Communicator& newer) {
    if (timing_ != nullptr) {
        for (auto& [client, held] : timing_->held) {
            if (client != &newer && client->counters().lost) {
                held.clear();
            }
        }
    }
}

void Server::reportTimings() {
    const auto needed = std::chrono::duration<float>(lead().start).count();
    for (auto& [client, held] : timing_->held) {
        const auto timing = held.timing(client->clock(), detail::HeldEvents::Clock::now());
        client->setTiming(timing);
        TimingEvent event;
        event.address(CmdReportTiming, 0);
        event.setTiming(timing);
        event.lead = needed;
        event.send(client);
    }
}

/// Answers CmdAskTiming.
void Server::answerTiming(Corvid::Communicator& asker) {
    TimingEvent event;
    event.address(CmdReportTiming, 0);
    const auto now = detail::HeldEvents::Clock::now();
    double age = std::numeric_limits<double>::max();
    for (const auto& [client, held] : timing_->held) {
        const auto timing = held.timing(client->clock(), now);
        if (timing.batches > 0 && timing.sceneAge < age) {
            age = timing.sceneAge;
            event.setTiming(timing);
        }
    }
    event.send(&asker);
}

// Differences

/// Answers CmdAskDifferences, and has the clients send checks for some time.
void Server::answerDifferences(Corvid::Communicator& asker) {
    const auto now = Comparison::Clock::now();
    if (comparison_ == nullptr || now > comparison_->end) {
        comparison_ = std::make_unique<Comparison>();
    }
    comparison_->end = now + Comparison::kTime;
    const auto driver = soleDriver();
    DifferencesEvent answer;
    answer.address(CmdReportDifferences, 0);
    if (driver && *driver == nullptr) {
        answer.state = DifferencesEvent::Free;
    } else if (driver && ((*driver)->features() & CheckEvent::kFeature) == 0) {
        answer.state = DifferencesEvent::Unable;
    } else {
        answer.state = DifferencesEvent::Compared;
        if (now >= comparison_->nextQuestion) {
            comparison_->nextQuestion = now + Comparison::kInterval;
            CommandEvent question;
            question.address(CmdAskChecks, 0);
            std::vector<std::byte> frame;
            question.encode(frame);
            if (driver) {
                (*driver)->sendFrame(frame.data(), frame.size());
            } else {
                multiServer_->sendFrameTo(CheckEvent::kFeature, frame.data(), frame.size());
            }
        }
    }
    for (const auto& [client, known] : comparison_->clients) {
        answer.sweeps = std::max(answer.sweeps, known.sweeps);
        answer.parts += known.partsOfWhole;
        answer.different += static_cast<unsigned>(known.differences.size());
        for (const auto& [part, difference] : known.differences) {
            if (answer.names.size() == DifferencesEvent::kMaxNamed) {
                break;
            }
            const bool hasId = part.second != 0;
            answer.names.push_back(
                nameOf(part.first) + (hasId ? ' ' + std::to_string(part.second) : "") +
                difference.how);
        }
    }
    answer.send(&asker);
}

/// Compares the scene, as the earlier events of a client have left it, with the client's.
void Server::compare(const CheckEvent& check, const Corvid::Communicator& client) {
    const auto driver = soleDriver();
    if (comparison_ == nullptr || Comparison::Clock::now() > comparison_->end ||
        (driver && *driver != &client)) {
        return;
    }
    Comparison::Client& known = comparison_->clients[&client];
    if (check.number == 0) {
        ++known.sweep;
        known.next = 0;
        known.isWhole = true;
        known.parts = 0;
    }
    known.isWhole = known.isWhole && check.number == known.next;
    known.next = check.number + 1;
    known.parts += static_cast<unsigned>(check.size());
    std::set<int> emitters;
    for (std::size_t i = 0; i < check.size(); ++i) {
        const CheckEvent::Part part = check.at(i);
        if (part.kind == CheckEvent::Kind::Emitter) {
            emitters.insert(part.id);
        }
        if (const char* how = differenceOf(part)) {
            known.differences[{part.kind, part.id}] = {how, known.sweep};
        } else {
            known.differences.erase({part.kind, part.id});
        }
    }
    if (driver) { // all emitters are the driver's, or the server's own
        const auto& mine = this->emitters();
        for (auto mineNext = mine.lower_bound(check.first);
             mineNext != mine.end() && mineNext->first <= check.last; ++mineNext) {
            const int id = mineNext->first;
            if (!emitters.contains(id) && !isOwn(CheckEvent::Kind::Emitter, id)) {
                known.differences[{CheckEvent::Kind::Emitter, static_cast<short>(id)}] = {
                    " (the player has none)", known.sweep};
            }
        }
    }
    if (check.isLast && std::exchange(known.isWhole, false)) {
        ++known.sweeps;
        known.partsOfWhole = known.parts;
        std::erase_if(known.differences, [&known](const auto& entry) { // neither has it now
            return entry.second.sweep != known.sweep;
        });
    }
}

/// How this scene's part differs from a client's, behind the part's name; null if it does not.
const char* Server::differenceOf(const CheckEvent::Part& part) {
    using Kind = CheckEvent::Kind;
    if (isOwn(part.kind, part.id)) {
        return nullptr;
    }
    detail::Rounding rounding(part.rounding);
    const Source* source = part.kind == Kind::Source ? getSource(part.id) : nullptr;
    const Emitter* emitter = part.kind == Kind::Emitter ? getEmitter(part.id) : nullptr;
    const auto compared = [&part](std::uint64_t hash) { return hash == part.hash ? nullptr : ""; };
    switch (part.kind) {
    case Kind::Switch:
        return compared(detail::hashOf(enabled()));
    case Kind::Listener:
        return compared(detail::hashOfListener(*this, rounding));
    case Kind::Source:
        if (source == nullptr) {
            return " (missing)";
        }
        return compared(detail::hashOf(*source, source->state(), receivedPitch(*source)));
    case Kind::Emitter:
        if (emitter == nullptr) {
            return " (missing)";
        }
        return compared(
            detail::hashOf(*emitter, emitter->state(), receivedGain(*emitter), rounding));
    }
    return nullptr; // a kind that a later release sends
}

std::optional<Corvid::Communicator*> Server::soleDriver() const {
    return std::nullopt;
}

bool Server::isOwn(CheckEvent::Kind /*kind*/, int /*id*/) const {
    return false;
}

float Server::receivedGain(const Emitter& emitter) const {
    return emitter.gain();
}

float Server::receivedPitch(const Source& source) const {
    return source.pitch();
}

Server::Lead Server::lead() {
    return {};
}

std::chrono::nanoseconds Server::beginDue(
    std::chrono::steady_clock::time_point due, std::chrono::steady_clock::time_point arrived) {
    return arrived - due;
}

void Server::endDue() {}

bool Server::interceptEvent(Corvid::Event& /*event*/, Corvid::Communicator& /*from*/) {
    return false;
}

void Server::watcherSent(const Corvid::Event& /*event*/, Corvid::Communicator& from) {
    ORVEL_REPORT_PEER(
        ForeignEvent, Warning, detail::about(Diagnostic::Code::NotDriving),
        "Orvel::Server: %s has a key that may only watch; its event has no effect\n",
        from.counters().peer.c_str());
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
        ORVEL_REPORT_PEER(
            UnknownCommand, Fatal, detail::about(Diagnostic::Code::InvalidEvent),
            "Unkown command ID: %d\n", event->command);
    } else if (outcome == Outcome::Invalid) {
        ORVEL_REPORT_PEER(
            InvalidEvent, Fatal, detail::about(Diagnostic::Code::InvalidEvent),
            "Got invalid Event: %s/%d/%d/%d\n", event->type()->name().c_str(), event->command,
            event->objectId, event->protocolTag);
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
