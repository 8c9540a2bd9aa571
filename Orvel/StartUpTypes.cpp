// The kinds that are registered when the library is loaded. They stand in one source file, because
// only within one is the order fixed in which static objects are built: first the registry, then
// the kinds in this order.
#include <Orvel/BackendFactory.h>
#include <Orvel/BackendType.h>
#include <Orvel/LogBackend.h>
#include <Orvel/OALBackend.h>
#include <Orvel/PlayBackend.h>
#include <Orvel/SilentBackend.h>

namespace Orvel {

BackendFactory BackendFactory::_the;

BackendType LogBackend::_type("log", &LogBackend::createMethod);
BackendType PlayBackend::_type("play", &PlayBackend::createMethod);
BackendType SilentBackend::_type("silent", &SilentBackend::createMethod);
BackendType OALBackend::_type("openal", &OALBackend::createMethod);

} // namespace Orvel
