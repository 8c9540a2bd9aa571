#pragma once

#include <Orvel/EventOf.h>

#include <orvel_export.h>

namespace Orvel {

/// The meaning of an event, in its field `command`. All but CmdSetSourceDuration, CmdReportDriver,
/// CmdAskClock, CmdReportTiming, CmdAskChecks and CmdReportDifferences are sent from client to
/// server. docs/protocol.md lists the event class of each command.
enum Command : short {
    CmdResetBackend = 10,
    CmdEnable = 11,
    CmdDisable = 12,
    CmdSetListenerTransform = 13,
    CmdSetTime = 14,
    CmdOfferClock = 15,
    CmdAnswerClock = 16,
    CmdEndReplay = 17,
    CmdAskTiming = 18,
    CmdCheckParts = 19,
    CmdCreateSource = 20,
    CmdDestroySource = 21,
    CmdSetSourceParam = 22,
    CmdSetSourceDuration = 23,
    CmdPlaySource = 24,
    CmdPauseSource = 25,
    CmdStopSource = 26,
    CmdCreateEmitter = 30,
    CmdDestroyEmitter = 31,
    CmdSetEmitterParam = 32,
    CmdSetEmitterConnection = 33,
    CmdSetEmitterTransform = 34,
    CmdSetEmitterHull = 35,
    CmdPlayEmitter = 36,
    CmdPauseEmitter = 37,
    CmdStopEmitter = 38,
    CmdSetEmitterPosition = 39,
    CmdReportDriver = 40,
    CmdAskClock = 41,
    CmdReportTiming = 42,
    CmdAskChecks = 43,
    CmdAskDifferences = 44,
    CmdReportDifferences = 45,
};

/// Whether `objectId` of a command is the id of an emitter.
constexpr bool concernsEmitter(short command) {
    return command >= CmdCreateEmitter && command <= CmdSetEmitterPosition;
}

/// A command without values, and the base of those with values. Events are plain values. Confined
/// to one thread at a time.
class ORVEL_EXPORT CommandEvent : public EventOf<CommandEvent, Corvid::Event> {
public:
    /// The protocolTag of every event that the library sends.
    static constexpr short kProtocolTag = 3378;
    /// The version for Corvid::MultiClient and Corvid::MultiServer, so that only programs which
    /// understand these events connect.
    static constexpr int kProtocolVersion = 2;

    explicit CommandEvent(short commandId = 0, short id = 0) : command(commandId), objectId(id) {}

    /// Sets the command, the id truncated to its low 16 bits, and the protocolTag.
    void address(Command commandId, int id) {
        command = commandId;
        objectId = static_cast<short>(id);
        protocolTag = kProtocolTag;
    }

    short command;
    /// The id of the source or emitter; 0 if the command concerns neither.
    short objectId;

    static auto fields(auto& event) { return std::tie(event.command, event.objectId); }
    static Corvid::EventType _type;
};

} // namespace Orvel
