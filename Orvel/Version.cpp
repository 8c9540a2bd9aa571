#include <Orvel/Version.h>

namespace Orvel {

const char* version() noexcept {
    return ORVEL_VERSION;
}

} // namespace Orvel
