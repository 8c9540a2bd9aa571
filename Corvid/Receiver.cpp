#include <Corvid/Receiver.h>

namespace Corvid {

void Receiver::refuseFrame(const std::string& /*reason*/) {}

} // namespace Corvid
