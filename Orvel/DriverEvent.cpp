#include <Orvel/DriverEvent.h>

namespace Orvel {

void DriverEvent::addFields() {
    CommandEvent::addFields();
    addField(state);
    addField(text);
}

void DriverEvent::getFields() {
    CommandEvent::getFields();
    getField(state);
    getField(text);
    if (text.size() > kMaxTextBytes) {
        failRead();
    }
}

const Corvid::EventType* DriverEvent::type() const {
    return &_type;
}

Corvid::Event* DriverEvent::create() {
    return new DriverEvent;
}

} // namespace Orvel
