// The kinds that register when the library is loaded. They are in one source file because the
// construction order of static objects is only defined within a file: first the registry, then the
// kinds and the event types in this order.
#include <Orvel/BackendFactory.h>
#include <Orvel/BackendType.h>
#include <Orvel/ClientBackend.h>
#include <Orvel/LogBackend.h>
#include <Orvel/OALBackend.h>
#include <Orvel/PlayBackend.h>
#include <Orvel/SilentBackend.h>
#include <Orvel/WebBackend.h>
#include <Orvel/detail/net/Changes.h>

using Corvid::EventType;

namespace Orvel {

BackendFactory BackendFactory::_the;

BackendType ClientBackend::_type("client", &ClientBackend::createMethod);
BackendType LogBackend::_type("log", &LogBackend::createMethod);
BackendType PlayBackend::_type("play", &PlayBackend::createMethod);
BackendType SilentBackend::_type("silent", &SilentBackend::createMethod);
BackendType OALBackend::_type("openal", &OALBackend::createMethod);
BackendType WebBackend::_type("web", &WebBackend::createMethod);

#define ORVEL_REGISTER(class_, number) EventType class_::_type(#class_, number, &class_::create);
ORVEL_EVENTS(ORVEL_REGISTER)
#undef ORVEL_REGISTER

} // namespace Orvel
