#include <Orvel/CommandEvent.h>

namespace Orvel {

void CommandEvent::getFields() {
    Event::getFields();
    getField(command);
    getField(objectId);
}

const Corvid::EventType* CommandEvent::type() const {
    return &_type;
}

Corvid::Event* CommandEvent::create() {
    return new CommandEvent;
}

} // namespace Orvel
