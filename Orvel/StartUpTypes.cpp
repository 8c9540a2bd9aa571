// The kinds that are registered when the library is loaded. They stand in one source file, because
// only within one is the order fixed in which static objects are built: first the registry, then
// the kinds and the types of events in this order.
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
