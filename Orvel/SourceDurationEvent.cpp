#include <Orvel/SourceDurationEvent.h>

namespace Orvel {

void SourceDurationEvent::addFields() {
    CommandEvent::addFields();
    addField(duration);
}

void SourceDurationEvent::getFields() {
    CommandEvent::getFields();
    getField(duration);
}

const Corvid::EventType* SourceDurationEvent::type() const {
    return &_type;
}

Corvid::Event* SourceDurationEvent::create() {
    return new SourceDurationEvent;
}

} // namespace Orvel
