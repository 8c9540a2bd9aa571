#pragma once

#include <Corvid/FrameRole.h>
#include <Orvel/CheckEvent.h>
#include <Orvel/ClockEvent.h>
#include <Orvel/CommandEvent.h>
#include <Orvel/CreateEmitterEvent.h>
#include <Orvel/DifferencesEvent.h>
#include <Orvel/DriverEvent.h>
#include <Orvel/Emitter.h>
#include <Orvel/EmitterConnectionEvent.h>
#include <Orvel/EmitterHullEvent.h>
#include <Orvel/EmitterParamEvent.h>
#include <Orvel/PositionEvent.h>
#include <Orvel/Source.h>
#include <Orvel/SourceDataEvent.h>
#include <Orvel/SourceDurationEvent.h>
#include <Orvel/SourceParamEvent.h>
#include <Orvel/TimeEvent.h>
#include <Orvel/TimingEvent.h>
#include <Orvel/TransformEvent.h>
#include <Orvel/World.h>

#include <array>
#include <cstddef>
#include <tuple>
#include <type_traits>
#include <utility>

/// The event classes with their numbers on the wire, in registration order.
#define ORVEL_EVENTS(EVENT)                                                                        \
    EVENT(CommandEvent, 200)                                                                       \
    EVENT(EmitterConnectionEvent, 203)                                                             \
    EVENT(CreateEmitterEvent, 202)                                                                 \
    EVENT(EmitterHullEvent, 204)                                                                   \
    EVENT(EmitterParamEvent, 205)                                                                  \
    EVENT(SourceDataEvent, 207)                                                                    \
    EVENT(SourceParamEvent, 206)                                                                   \
    EVENT(SourceDurationEvent, 208)                                                                \
    EVENT(TransformEvent, 201)                                                                     \
    EVENT(DriverEvent, 209)                                                                        \
    EVENT(TimeEvent, 210)                                                                          \
    EVENT(ClockEvent, 211)                                                                         \
    EVENT(TimingEvent, 212)                                                                        \
    EVENT(PositionEvent, 213)                                                                      \
    EVENT(CheckEvent, 214)                                                                         \
    EVENT(DifferencesEvent, 215)

/// How a change is sent from a client to a server: one row per command. The client back end, the
/// server, the connections that get only the newest values, and the tests of docs/protocol.md all
/// use the rows.
namespace Orvel::detail {

#define ORVEL_COMMA_CLASS(class_, number) , class_
template <class, class... Classes>
using TupleWithoutFirst = std::tuple<Classes...>;
/// A tuple with one event of each class.
using Events = TupleWithoutFirst<void ORVEL_EVENTS(ORVEL_COMMA_CLASS)>;
#undef ORVEL_COMMA_CLASS

/// The number of an event class on the wire.
template <class Event>
constexpr short kTypeId = 0;
#define ORVEL_TYPE_ID(class_, number)                                                              \
    template <>                                                                                    \
    inline constexpr short kTypeId<class_> = number;
ORVEL_EVENTS(ORVEL_TYPE_ID)
#undef ORVEL_TYPE_ID

enum class Replay { No, Yes, State /* of the three rows the one that it has */ };
constexpr auto kReset = Corvid::FrameRole::Kind::Reset;
constexpr auto kEvent = Corvid::FrameRole::Kind::Event;
constexpr auto kValue = Corvid::FrameRole::Kind::Value;

/// A row. `Event` carries the command; `Subject` is the part that it concerns: a World (the scene
/// with its listener), a Source or an Emitter.
template <Command id, class EventClass, class SubjectClass, class Fill, class Apply>
struct Change {
    static constexpr Command kCommand = id;
    using Event = EventClass;
    using Subject = SubjectClass;

    const char* operation;       // of the back ends, which reports the change
    Corvid::FrameRole::Kind lag; // treatment on a connection that lags
    Replay replay;               // whether it is part of a replay, in the order of the rows
    Fill fill;                   ///< (Event&, Subject&): the client's side
    Apply apply;                 ///< (Event&, Subject&) or (Event&, World&): the server's side;
                                 ///< false from a bool: the command is invalid
};

template <Command id, class Event, class Subject, class Fill, class Apply>
constexpr Change<id, Event, Subject, Fill, Apply>
change(const char* operation, Corvid::FrameRole::Kind lag, Replay replay, Fill fill, Apply apply) {
    return {operation, lag, replay, fill, apply};
}

constexpr auto kNoValues = [](auto& /*event*/, auto& /*subject*/) {};
template <bool enabled>
constexpr auto kEnable = [](auto& /*event*/, World& world) { world.setEnabled(enabled); };
template <class Part>
constexpr auto kDestroy = [](auto& /*event*/, Part& part) { delete &part; };
template <class Part, WorldPart::State state>
constexpr auto kSetState = [](auto& /*event*/, Part& part) { part.setState(state); };

// Within a part, the order of the rows is that of the back ends' operations.
inline constexpr std::tuple kChanges{
    change<CmdResetBackend, CommandEvent, World>(
        "resetBackend", kReset, Replay::Yes, kNoValues,
        [](auto& /*event*/, World& world) { world.reset(); }),
    change<CmdEnable, CommandEvent, World>(
        "setEnabled", kEvent, Replay::No, kNoValues, kEnable<true>),
    change<CmdDisable, CommandEvent, World>(
        "setEnabled", kEvent, Replay::No, kNoValues, kEnable<false>),
    change<CmdSetListenerTransform, TransformEvent, World>(
        "setListenerTransform", kValue, Replay::Yes,
        [](auto& event, World& world) {
            event.position = world.listenerPosition();
            event.rotation = world.listenerRotation();
        },
        [](auto& event, World& world) {
            world.setListenerTransform(event.position, event.rotation);
        }),

    change<CmdEndReplay, CommandEvent, World>(
        "resetBackend", kEvent, Replay::No, kNoValues,
        [](auto& /*event*/, World& world) {
            for (const auto& [id, emitter] : world.emitters()) {
                emitter->setStartOffset(0.0);
            }
        }),

    change<CmdCreateSource, SourceDataEvent, Source>(
        "createSource", kEvent, Replay::Yes, kNoValues,
        [](auto& /*event*/, World& /*world*/) { return false; }), // a server has its own sources
    change<CmdDestroySource, CommandEvent, Source>(
        "destroySource", kEvent, Replay::No, kNoValues, kDestroy<Source>),
    change<CmdSetSourceParam, SourceParamEvent, Source>(
        "setSourceParam", kValue, Replay::Yes,
        [](auto& event, Source& source) { event.setParam(source.loop(), source.pitch()); },
        [](auto& event, Source& source) { source.setParam(event.loop, event.pitch); }),
    change<CmdPlaySource, CommandEvent, Source>(
        "setSourceState", kEvent, Replay::State, kNoValues, kSetState<Source, WorldPart::PLAY>),
    change<CmdPauseSource, CommandEvent, Source>(
        "setSourceState", kEvent, Replay::State, kNoValues, kSetState<Source, WorldPart::PAUSE>),
    change<CmdStopSource, CommandEvent, Source>(
        "setSourceState", kEvent, Replay::State, kNoValues, kSetState<Source, WorldPart::STOP>),

    change<CmdCreateEmitter, CreateEmitterEvent, Emitter>(
        "createEmitter", kEvent, Replay::Yes,
        [](auto& event, Emitter& emitter) { event.labels = emitter.labels(); },
        [](auto& event, World& world) {
            return world.createEmitter(event.labels, event.objectId) != nullptr;
        }),
    change<CmdDestroyEmitter, CommandEvent, Emitter>(
        "destroyEmitter", kEvent, Replay::No, kNoValues, kDestroy<Emitter>),
    change<CmdSetEmitterTransform, TransformEvent, Emitter>(
        "setEmitterTransform", kValue, Replay::Yes,
        [](auto& event, Emitter& emitter) {
            event.position = emitter.position();
            event.rotation = emitter.rotation();
        },
        [](auto& event, Emitter& emitter) {
            emitter.setTransform(&event.position, &event.rotation);
        }),
    change<CmdSetEmitterHull, EmitterHullEvent, Emitter>(
        "setEmitterHull", kValue, Replay::Yes,
        [](auto& event, Emitter& emitter) { event.setHull(emitter.hull()); },
        [](auto& event, Emitter& emitter) { emitter.setHull(event); }),
    change<CmdSetEmitterParam, EmitterParamEvent, Emitter>(
        "setEmitterParam", kValue, Replay::Yes,
        [](auto& event, Emitter& emitter) {
            event.setParam(emitter.paramFlag(), emitter.paramValue(), emitter.gain());
        },
        [](auto& event, Emitter& emitter) {
            emitter.setParam(event.paramFlag, event.paramValue, event.gain);
        }),
    change<CmdSetEmitterConnection, EmitterConnectionEvent, Emitter>(
        "setEmitterConnection", kEvent, Replay::Yes,
        [](auto& event, Emitter& emitter) {
            const Source* source = emitter.source();
            event.sourceId = static_cast<short>(source == nullptr ? 0 : source->id());
        },
        [](auto& event, Emitter& emitter) { // an unknown source disconnects
            emitter.setSource(emitter.world().getSource(event.sourceId));
        }),
    change<CmdPlayEmitter, CommandEvent, Emitter>(
        "setEmitterState", kEvent, Replay::State, kNoValues, kSetState<Emitter, WorldPart::PLAY>),
    change<CmdPauseEmitter, CommandEvent, Emitter>(
        "setEmitterState", kEvent, Replay::State, kNoValues, kSetState<Emitter, WorldPart::PAUSE>),
    change<CmdStopEmitter, CommandEvent, Emitter>(
        "setEmitterState", kEvent, Replay::State, kNoValues, kSetState<Emitter, WorldPart::STOP>),
    change<CmdSetEmitterPosition, PositionEvent, Emitter>(
        "setEmitterState", kEvent, Replay::No, kNoValues, [](auto& event, Emitter& emitter) {
            emitter.setStartOffset(static_cast<double>(event.position) * 1e-9);
        })};

/// Calls `visit` with each row, in order.
template <class Visit>
constexpr void forEachChange(Visit visit) {
    std::apply([&visit](const auto&... row) { (visit(row), ...); }, kChanges);
}

/// The index of a command's row.
template <Command id, class... Rows>
constexpr std::size_t indexOf(const std::tuple<Rows...>& /*rows*/) {
    std::size_t index = 0;
    (void)((Rows::kCommand == id || (++index, false)) || ...);
    return index;
}

/// The row of a command.
template <Command id>
inline constexpr const auto& kChange = std::get<indexOf<id>(kChanges)>(kChanges);

template <Command id>
using EventOfCommand = typename std::tuple_element_t<
    indexOf<id>(kChanges), std::remove_const_t<decltype(kChanges)>>::Event;

/// All fields of an event, in wire order.
template <class Event>
constexpr auto fieldsOf(const Event& event) {
    if constexpr (std::is_same_v<Event, CommandEvent>) {
        return CommandEvent::fields(event);
    } else {
        return std::tuple_cat(CommandEvent::fields(event), Event::fields(event));
    }
}

template <class... Fields>
constexpr bool areFixed(const std::tuple<const Fields&...>* /*fields*/) {
    return (std::is_arithmetic_v<Fields> && ...);
}
template <class Event>
constexpr bool kHasFixedFields =
    areFixed(static_cast<decltype(fieldsOf(std::declval<const Event&>()))*>(nullptr));

/// Calls `send.operator()<size>(write)` for the frame of an event with such fields, where
/// `write(to)` writes it.
template <class Event, class Send>
[[gnu::always_inline]] inline void withFrame(const Event& event, const Send& send) {
    std::apply(
        [&]<class... Values>(const Values&... values) __attribute__((always_inline)) {
            send.template operator()<Corvid::Event::kFixedFrameBytes<Values...>>([&](
                std::byte * to) __attribute__((always_inline)) {
                Corvid::Event::writeFixedFrame(to, kTypeId<Event>, event.protocolTag, values...);
            });
        },
        fieldsOf(event));
}

/// An array indexed by command, filled with `make(row)`.
template <class Value, class Make>
constexpr auto byCommand(Make make) {
    std::array<Value, 64> values{};
    forEachChange([&](const auto& row) { values[row.kCommand] = make(row); });
    return values;
}

} // namespace Orvel::detail
