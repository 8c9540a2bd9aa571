#include <Orvel/EmitterHullEvent.h>

namespace Orvel {

void EmitterHullEvent::addFields() {
    CommandEvent::addFields();
    addField(maxBack);
    addField(maxFront);
    addField(minBack);
    addField(minFront);
}

void EmitterHullEvent::getFields() {
    CommandEvent::getFields();
    getField(maxBack);
    getField(maxFront);
    getField(minBack);
    getField(minFront);
}

const Corvid::EventType* EmitterHullEvent::type() const {
    return &_type;
}

Corvid::Event* EmitterHullEvent::create() {
    return new EmitterHullEvent;
}

} // namespace Orvel
