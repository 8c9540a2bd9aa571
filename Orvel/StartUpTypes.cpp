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
#include <Orvel/detail/KindParams.h>
#include <Orvel/detail/net/Changes.h>

using Corvid::EventType;

namespace Orvel {

BackendFactory BackendFactory::_the;

BackendType ClientBackend::_type(
    "client", &ClientBackend::createMethod, "plays the scene on sound servers (orvel serve)",
    detail::kClientParams);
BackendType LogBackend::_type(
    "log", &LogBackend::createMethod, "writes each change of the scene to standard error");
BackendType PlayBackend::_type(
    "play", &PlayBackend::createMethod,
    "prints a player command line for each sound (command=\"player -q\")", detail::kPlayParams);
BackendType SilentBackend::_type("silent", &SilentBackend::createMethod, "does nothing");
BackendType OALBackend::_type(
    "openal", &OALBackend::createMethod, "plays through this machine's sound device");
BackendType WebBackend::_type(
    "web", &WebBackend::createMethod, "serves a status page to browsers on this machine (--web)");

#define ORVEL_REGISTER(class_, number) EventType class_::_type(#class_, number, &class_::create);
ORVEL_EVENTS(ORVEL_REGISTER)
#undef ORVEL_REGISTER

} // namespace Orvel
