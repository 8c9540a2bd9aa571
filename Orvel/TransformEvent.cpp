#include <Orvel/TransformEvent.h>

namespace Orvel {

void TransformEvent::addFields() {
    CommandEvent::addFields();
    addEach(position.x, position.y, position.z, rotation.x, rotation.y, rotation.z, rotation.w);
}

void TransformEvent::getFields() {
    CommandEvent::getFields();
    getField(position.x);
    getField(position.y);
    getField(position.z);
    getField(rotation.x);
    getField(rotation.y);
    getField(rotation.z);
    getField(rotation.w);
}

const Corvid::EventType* TransformEvent::type() const {
    return &_type;
}

Corvid::Event* TransformEvent::create() {
    return new TransformEvent;
}

} // namespace Orvel
