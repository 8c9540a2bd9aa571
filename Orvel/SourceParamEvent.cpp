#include <Orvel/SourceParamEvent.h>

namespace Orvel {

void SourceParamEvent::addFields() {
    CommandEvent::addFields();
    addField(pitch);
    addField(loop);
}

void SourceParamEvent::getFields() {
    CommandEvent::getFields();
    getField(pitch);
    getField(loop);
}

const Corvid::EventType* SourceParamEvent::type() const {
    return &_type;
}

Corvid::Event* SourceParamEvent::create() {
    return new SourceParamEvent;
}

} // namespace Orvel
