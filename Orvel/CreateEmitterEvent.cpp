#include <Orvel/CreateEmitterEvent.h>

namespace Orvel {

void CreateEmitterEvent::addFields() {
    CommandEvent::addFields();
    const auto count = static_cast<unsigned int>(labels.size());
    addField(count);
    for (unsigned int i = 0; i < count; ++i) {
        addField(labels[i]);
    }
}

void CreateEmitterEvent::getFields() {
    CommandEvent::getFields();
    constexpr std::size_t kSmallestLabel = 5; // an empty text on the wire
    unsigned int count = 0;
    if (!getField(count) || count > kMaxLabels || count > bytesLeft() / kSmallestLabel) {
        failRead(); // before memory is taken for labels
        return;
    }
    labels.resize(count);
    for (std::string& label : labels) {
        getField(label);
    }
}

const Corvid::EventType* CreateEmitterEvent::type() const {
    return &_type;
}

Corvid::Event* CreateEmitterEvent::create() {
    return new CreateEmitterEvent;
}

} // namespace Orvel
