#include <Orvel/OrvelMultiClient.h>

#include <Orvel/ClientBackend.h>
#include <Orvel/CommandEvent.h>
#include <Orvel/CreateEmitterEvent.h>
#include <Orvel/EmitterConnectionEvent.h>
#include <Orvel/EmitterHullEvent.h>
#include <Orvel/EmitterParamEvent.h>
#include <Orvel/SourceDataEvent.h>
#include <Orvel/SourceParamEvent.h>
#include <Orvel/TransformEvent.h>
#include <Orvel/detail/LogLine.h>

#include <cstring>
#include <exception>

namespace Orvel {

namespace {

using Corvid::FrameRole;

// Of FrameRole::subject: 0 is the scene with its listener, sources and emitters follow by their
// ids.
constexpr std::uint32_t kScene = 0;
constexpr std::uint32_t kSources = 1U << 16U;
constexpr std::uint32_t kEmitters = 2U << 16U;

template <class Field>
Field fieldAt(std::span<const std::byte> frame, std::size_t offset) {
    Field field = 0;
    std::memcpy(&field, frame.data() + offset, sizeof field);
    return field;
}

} // namespace

OrvelMultiClient::OrvelMultiClient(int protocolVersion, ClientBackend& backend)
    : MultiClient(protocolVersion), backend_(backend) {}

bool OrvelMultiClient::addCommunicator(Corvid::Communicator* connection) {
    try {
        return MultiCommunicator::addCommunicator(connection) &&
               backend_.addCommunicator(connection);
    } catch (const std::exception& fault) { // the connection is closed, and made anew later
        ORVEL_LOG(Fatal, "ClientBackend: cannot send the scene: %s\n", fault.what());
        return false;
    }
}

FrameRole OrvelMultiClient::roleOf(std::span<const std::byte> frame) {
    // A command's frame: length, event type, protocolTag, then command and id, each after its type.
    constexpr std::size_t kType = 4;
    constexpr std::size_t kCommand = 9;
    constexpr std::size_t kId = 12;
    if (frame.size() < kId + sizeof(short)) {
        return {};
    }
    const auto type = fieldAt<short>(frame, kType);
    const std::uint32_t id = fieldAt<std::uint16_t>(frame, kId);
    const auto event = [type](const Corvid::EventType& expected, std::uint32_t subject) {
        return type == expected.typeId() ? FrameRole{FrameRole::Kind::Event, subject} : FrameRole();
    };
    const auto value =
        [type](const Corvid::EventType& expected, std::uint32_t subject, unsigned slot) {
            return type == expected.typeId() ? FrameRole{FrameRole::Kind::Value, subject, slot}
                                             : FrameRole();
        };
    switch (fieldAt<short>(frame, kCommand)) {
    case CmdResetBackend:
        return type == CommandEvent::_type.typeId() ? FrameRole{FrameRole::Kind::Reset, kSources}
                                                    : FrameRole();
    case CmdEnable:
    case CmdDisable: // a move of the listener may undo the effect at the server
        return event(CommandEvent::_type, kScene);
    case CmdSetListenerTransform:
        return value(TransformEvent::_type, kScene, 0);
    case CmdCreateSource:
        return event(SourceDataEvent::_type, kSources | id);
    case CmdDestroySource:
    case CmdPlaySource:
    case CmdPauseSource:
    case CmdStopSource:
        return event(CommandEvent::_type, kSources | id);
    case CmdSetSourceParam:
        return value(SourceParamEvent::_type, kSources | id, 0);
    case CmdCreateEmitter:
        return event(CreateEmitterEvent::_type, kEmitters | id);
    case CmdSetEmitterConnection:
        return event(EmitterConnectionEvent::_type, kEmitters | id);
    case CmdDestroyEmitter:
    case CmdPlayEmitter:
    case CmdPauseEmitter:
    case CmdStopEmitter:
        return event(CommandEvent::_type, kEmitters | id);
    case CmdSetEmitterTransform:
        return value(TransformEvent::_type, kEmitters | id, 0);
    case CmdSetEmitterHull:
        return value(EmitterHullEvent::_type, kEmitters | id, 1);
    case CmdSetEmitterParam:
        return value(EmitterParamEvent::_type, kEmitters | id, 2);
    default:
        return {};
    }
}

} // namespace Orvel
