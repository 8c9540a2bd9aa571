#include <Corvid/EventType.h>

#include <array>
#include <cstdint>

namespace Corvid {

namespace {

// One entry per number, so that finding the type of a received event is one load.
// Constant-initialised, so types may register from any static object; pages of unused numbers cost
// nothing.
constinit std::array<const EventType*, 65536> types = {};

const EventType*& entry(short typeId) noexcept {
    return types[static_cast<std::uint16_t>(typeId)];
}

} // namespace

EventType::EventType(const char* name, short typeId, CreateFunction createFunction)
    : name_(name), typeId_(typeId), create_(createFunction) {
    if (entry(typeId) == nullptr) {
        entry(typeId) = this;
    }
}

EventType::~EventType() {
    if (entry(typeId_) == this) {
        entry(typeId_) = nullptr;
    }
}

const EventType* EventType::find(short typeId) noexcept {
    return entry(typeId);
}

} // namespace Corvid
