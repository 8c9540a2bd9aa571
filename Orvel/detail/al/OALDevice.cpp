#include <Orvel/detail/al/OALDevice.h>

namespace Orvel::detail {

ALCdevice* OALDevice::open(const Config::ParamBag& /*params*/) {
    return alcOpenDevice(nullptr);
}

const ALCint* OALDevice::attributes() const {
    return nullptr;
}

} // namespace Orvel::detail
