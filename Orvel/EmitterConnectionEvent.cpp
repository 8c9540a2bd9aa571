#include <Orvel/EmitterConnectionEvent.h>

namespace Orvel {

void EmitterConnectionEvent::addFields() {
    CommandEvent::addFields();
    addField(sourceId);
}

void EmitterConnectionEvent::getFields() {
    CommandEvent::getFields();
    getField(sourceId);
}

const Corvid::EventType* EmitterConnectionEvent::type() const {
    return &_type;
}

Corvid::Event* EmitterConnectionEvent::create() {
    return new EmitterConnectionEvent;
}

} // namespace Orvel
