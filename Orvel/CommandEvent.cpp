#include <Orvel/CommandEvent.h>

namespace Orvel {

void CommandEvent::addFields() {
    Event::addFields();
    addEach(command, objectId);
}

void CommandEvent::getFields() {
    Event::getFields();
    getField(command);
    getField(objectId);
}

const Corvid::EventType* CommandEvent::type() const {
    return &_type;
}

void CommandEvent::address(Command commandId, int id) {
    command = commandId;
    objectId = static_cast<short>(id);
    protocolTag = kProtocolTag;
}

Corvid::Event* CommandEvent::create() {
    return new CommandEvent;
}

} // namespace Orvel
