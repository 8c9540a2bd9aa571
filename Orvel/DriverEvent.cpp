#include <Orvel/DriverEvent.h>

namespace Orvel {

void DriverEvent::getFields() {
    EventOf::getFields();
    if (text.size() > kMaxTextBytes) {
        failRead();
    }
}

} // namespace Orvel
