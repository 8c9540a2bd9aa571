#include <Orvel/EmitterParamEvent.h>

namespace Orvel {

void EmitterParamEvent::addFields() {
    CommandEvent::addFields();
    addField(gain);
    addField(paramValue);
    addField(paramFlag);
}

void EmitterParamEvent::getFields() {
    CommandEvent::getFields();
    getField(gain);
    getField(paramValue);
    getField(paramFlag);
}

const Corvid::EventType* EmitterParamEvent::type() const {
    return &_type;
}

Corvid::Event* EmitterParamEvent::create() {
    return new EmitterParamEvent;
}

} // namespace Orvel
