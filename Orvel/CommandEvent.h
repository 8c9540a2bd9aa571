#pragma once

#include <Orvel/EventOf.h>

#include <orvel_export.h>

namespace Orvel {

/// What an event asks for, in its field `command`. All but CmdSetSourceDuration and
/// CmdReportDriver travel from client to server. docs/protocol.md tells which class carries which
/// command.
enum Command : short {
    CmdResetBackend = 10,
    CmdEnable = 11,
    CmdDisable = 12,
    CmdSetListenerTransform = 13,
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
    CmdReportDriver = 40,
};

/// Whether a command is about an emitter, of which `objectId` is the id.
constexpr bool concernsEmitter(short command) {
    return command >= CmdCreateEmitter && command <= CmdStopEmitter;
}

/// A command without values of its own, and the base of those that carry some. Events are plain
/// values: filled, sent and forgotten. Confined to one thread at a time.
class ORVEL_EXPORT CommandEvent : public EventOf<CommandEvent, Corvid::Event> {
public:
    /// The protocolTag of every event that the library sends.
    static constexpr short kProtocolTag = 3378;
    /// What Corvid::MultiClient and Corvid::MultiServer are made with, so that only programs which
    /// understand these events meet.
    static constexpr int kProtocolVersion = 2;

    explicit CommandEvent(short commandId = 0, short id = 0) : command(commandId), objectId(id) {}

    /// Sets command and id, the latter cut to its low 16 bits, and the protocolTag.
    void address(Command commandId, int id) {
        command = commandId;
        objectId = static_cast<short>(id);
        protocolTag = kProtocolTag;
    }

    short command;
    /// The source's or emitter's id; 0 where the command concerns none.
    short objectId;

    static auto fields(auto& event) { return std::tie(event.command, event.objectId); }
    static Corvid::EventType _type;
};

} // namespace Orvel
