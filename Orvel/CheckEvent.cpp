#include <Orvel/CheckEvent.h>

#include <cstring>

namespace Orvel {

void CheckEvent::getFields() {
    EventOf::getFields();
    if (bytes_.size() % kPartBytes != 0 || size() > kMaxParts) {
        failRead();
    }
}

void CheckEvent::add(const Part& part) {
    unsigned char bytes[kPartBytes];
    bytes[0] = static_cast<unsigned char>(part.kind);
    bytes[1] = part.rounding;
    std::memcpy(bytes + 2, &part.id, sizeof part.id);
    std::memcpy(bytes + 4, &part.hash, sizeof part.hash);
    bytes_.insert(bytes_.end(), bytes, bytes + kPartBytes);
}

CheckEvent::Part CheckEvent::at(std::size_t index) const {
    const unsigned char* bytes = bytes_.data() + index * kPartBytes;
    Part part;
    part.kind = static_cast<Kind>(bytes[0]);
    part.rounding = bytes[1];
    std::memcpy(&part.id, bytes + 2, sizeof part.id);
    std::memcpy(&part.hash, bytes + 4, sizeof part.hash);
    return part;
}

} // namespace Orvel
