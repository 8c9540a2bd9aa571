// The kinds that are registered when the library is loaded. They stand in one source file, because
// only within one is the order fixed in which static objects are built: first the registry, then
// the kinds and the types of events in this order.
#include <Orvel/BackendFactory.h>
#include <Orvel/BackendType.h>
#include <Orvel/ClientBackend.h>
#include <Orvel/CommandEvent.h>
#include <Orvel/CreateEmitterEvent.h>
#include <Orvel/DriverEvent.h>
#include <Orvel/EmitterConnectionEvent.h>
#include <Orvel/EmitterHullEvent.h>
#include <Orvel/EmitterParamEvent.h>
#include <Orvel/LogBackend.h>
#include <Orvel/OALBackend.h>
#include <Orvel/PlayBackend.h>
#include <Orvel/SilentBackend.h>
#include <Orvel/SourceDataEvent.h>
#include <Orvel/SourceDurationEvent.h>
#include <Orvel/SourceParamEvent.h>
#include <Orvel/TransformEvent.h>
#include <Orvel/WebBackend.h>

using Corvid::EventType;

namespace Orvel {

BackendFactory BackendFactory::_the;

BackendType ClientBackend::_type("client", &ClientBackend::createMethod);
BackendType LogBackend::_type("log", &LogBackend::createMethod);
BackendType PlayBackend::_type("play", &PlayBackend::createMethod);
BackendType SilentBackend::_type("silent", &SilentBackend::createMethod);
BackendType OALBackend::_type("openal", &OALBackend::createMethod);
BackendType WebBackend::_type("web", &WebBackend::createMethod);

EventType CommandEvent::_type("CommandEvent", 200, &CommandEvent::create);
EventType
    EmitterConnectionEvent::_type("EmitterConnectionEvent", 203, &EmitterConnectionEvent::create);
EventType CreateEmitterEvent::_type("CreateEmitterEvent", 202, &CreateEmitterEvent::create);
EventType EmitterHullEvent::_type("EmitterHullEvent", 204, &EmitterHullEvent::create);
EventType EmitterParamEvent::_type("EmitterParamEvent", 205, &EmitterParamEvent::create);
EventType SourceDataEvent::_type("SourceDataEvent", 207, &SourceDataEvent::create);
EventType SourceParamEvent::_type("SourceParamEvent", 206, &SourceParamEvent::create);
EventType SourceDurationEvent::_type("SourceDurationEvent", 208, &SourceDurationEvent::create);
EventType TransformEvent::_type("TransformEvent", 201, &TransformEvent::create);
EventType DriverEvent::_type("DriverEvent", 209, &DriverEvent::create);

} // namespace Orvel
