#include <Orvel/OrvelMultiClient.h>

#include <Orvel/ClientBackend.h>
#include <Orvel/detail/Report.h>
#include <Orvel/detail/net/Changes.h>

#include <array>
#include <cstring>
#include <exception>
#include <type_traits>

namespace Orvel {

namespace {

using Corvid::FrameRole;

/// The role of a command's frames. The id of the part is added to the subject; the subject is 0 for
/// the scene with its listener.
struct CommandRole {
    const Corvid::EventType* type = nullptr; // null: not a client's command
    FrameRole role;
};

constexpr auto kRoles = detail::byCommand<CommandRole>(
    [slots = std::array<unsigned, 3>()]<class Row>(const Row& row) mutable {
        constexpr unsigned kPart = std::is_same_v<typename Row::Subject, World>    ? 0
                                   : std::is_same_v<typename Row::Subject, Source> ? 1
                                                                                   : 2;
        const unsigned slot = row.lag == FrameRole::Kind::Value ? slots[kPart]++ : 0;
        return CommandRole{&Row::Event::_type, {row.lag, kPart << 16U, slot}};
    });

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
    } catch (const std::exception& fault) { // the connection is closed and later made again
        ORVEL_REPORT(
            Fatal, detail::about(Orvel::Diagnostic::Code::Network, {}, {}, fault.what()),
            "ClientBackend: cannot send the scene: %s\n", fault.what());
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
    const auto command = static_cast<std::size_t>(fieldAt<std::uint16_t>(frame, kCommand));
    // Superseded like the values that it belongs to, else it would keep them all.
    if (command == CmdSetTime && TimeEvent::_type.typeId() == fieldAt<short>(frame, kType)) {
        return {FrameRole::Kind::Value, 0, FrameRole::kSlots - 1};
    }
    if (command == CmdCheckParts && CheckEvent::_type.typeId() == fieldAt<short>(frame, kType)) {
        return {FrameRole::Kind::LeftOut, 0, 0};
    }
    if (command >= kRoles.size() || kRoles[command].type == nullptr ||
        kRoles[command].type->typeId() != fieldAt<short>(frame, kType)) {
        return {};
    }
    FrameRole role = kRoles[command].role;
    if (role.subject != 0) {
        role.subject |= fieldAt<std::uint16_t>(frame, kId);
    }
    return role;
}

} // namespace Orvel
