#include <Orvel/World.h>

#include <Orvel/Backend.h>
#include <Orvel/BackendFactory.h>
#include <Orvel/Emitter.h>
#include <Orvel/Source.h>
#include <Orvel/detail/Report.h>
#include <Orvel/detail/net/PeerLines.h>
#include <Orvel/detail/net/SameTransform.h>

#include <algorithm>

namespace Orvel {

namespace {

/// Calls one operation of every back end. Back ends that are appended meanwhile are called too.
template <auto operation, class... Arguments>
void notifyAll(const std::list<Backend*>& backends, Arguments&... arguments) {
    for (Backend* backend : backends) {
        (backend->*operation)(arguments...);
    }
}

template <class Part>
void deleteAllParts(const std::map<int, Part*>& parts) {
    while (!parts.empty()) {
        delete parts.begin()->second; // its destructor removes it from the map
    }
}

/// Negative ids follow all others.
std::size_t indexOf(int id) {
    return static_cast<unsigned>(id);
}

} // namespace

template <class Part>
void World::Parts<Part>::enter(int id, Part& part) {
    const std::size_t index = indexOf(id);
    if (index < kMaxTable && index >= table_.size()) {
        table_.resize(index + 1);
    }
    all_.insert_or_assign(all_.end(), id, &part); // ids usually ascend
    if (index < kMaxTable) {
        table_[index] = &part;
    }
}

template <class Part>
void World::Parts<Part>::leave(int id) {
    all_.erase(id);
    if (const std::size_t index = indexOf(id); index < kMaxTable) {
        table_[index] = nullptr;
    }
}

template <class Part>
Part* World::Parts<Part>::find(int id) const {
    const std::size_t index = indexOf(id);
    if (index < table_.size()) {
        return table_[index];
    }
    if (index < kMaxTable) {
        return nullptr;
    }
    const auto found = all_.find(id);
    return found == all_.end() ? nullptr : found->second;
}

World::World() = default;

World::World(const World& /*other*/) {
    ORVEL_REPORT(Warning, detail::about(Diagnostic::Code::Misuse), "In World copy constructor\n");
}

World::~World() {
    if (!emitters().empty() || !sources().empty()) {
        ORVEL_REPORT(
            Fatal, detail::about(Diagnostic::Code::Misuse),
            "clearWorld() should be called in derived World dest.\n");
    }
}

void World::resetWorld() {
    clearWorld();
    notifyAll<&Backend::resetBackend>(notified_);
}

void World::setEnabled() {
    notifyAll<&Backend::setEnabled>(notified_);
}

void World::setListenerTransform() {
    notifyAll<&Backend::setListenerTransform>(notified_);
}

void World::createSource(Source& source) {
    notifyAll<&Backend::createSource>(notified_, source);
}

void World::destroySource(Source& source) {
    notifyAll<&Backend::destroySource>(notified_, source);
}

void World::setSourceData(Source& source) {
    notifyAll<&Backend::setSourceData>(notified_, source);
}

void World::setSourceParam(Source& source) {
    notifyAll<&Backend::setSourceParam>(notified_, source);
}

void World::setSourceDuration(Source& /*source*/) {}

void World::setSourceState(Source& source) {
    notifyAll<&Backend::setSourceState>(notified_, source);
}

void World::createEmitter(Emitter& emitter) {
    notifyAll<&Backend::createEmitter>(notified_, emitter);
}

void World::destroyEmitter(Emitter& emitter) {
    notifyAll<&Backend::destroyEmitter>(notified_, emitter);
}

void World::setEmitterTransform(Emitter& emitter) {
    notifyAll<&Backend::setEmitterTransform>(notified_, emitter);
}

void World::setEmitterHull(Emitter& emitter) {
    notifyAll<&Backend::setEmitterHull>(notified_, emitter);
}

void World::setEmitterParam(Emitter& emitter) {
    notifyAll<&Backend::setEmitterParam>(notified_, emitter);
}

void World::setEmitterConnection(Emitter& emitter) {
    notifyAll<&Backend::setEmitterConnection>(notified_, emitter);
}

void World::setEmitterState(Emitter& emitter) {
    notifyAll<&Backend::setEmitterState>(notified_, emitter);
}

void World::clearWorld() {
    deleteAllParts(emitters());
    deleteAllParts(sources());
}

void World::reset() {
    resetWorld();
}

bool World::enabled() {
    return enabled_;
}

void World::setEnabled(bool enabled) {
    enabled_ = enabled;
    listenerMoved_ = false;
    setEnabled();
}

bool World::spatialize() {
    return spatialize_;
}

void World::setSpatialize(bool spatialize) {
    spatialize_ = spatialize;
}

const Vec3f& World::listenerPosition() {
    return listenerPosition_;
}

const Quaternion& World::listenerRotation() {
    return listenerRotation_;
}

void World::setListenerTransform(const Vec3f& position, const Quaternion& rotation) {
    if (detail::same(position, listenerPosition_) && detail::same(rotation, listenerRotation_)) {
        return;
    }
    listenerPosition_ = position;
    listenerRotation_ = rotation;
    listenerMoved_ = true;
    setListenerTransform();
}

int World::nextId() {
    // Unsigned, so that wrapping is defined.
    lastId_ = static_cast<int>(static_cast<unsigned>(lastId_) + 1U);
    return lastId_;
}

Emitter* World::createEmitter(const std::vector<std::string>& labels, int id) {
    if (id == 0) {
        id = nextId();
        if (id == 0) {
            return nullptr;
        }
    } else if (getEmitter(id) != nullptr) {
        ORVEL_REPORT_PEER(
            UsedId, Fatal, detail::about(Diagnostic::Code::Misuse),
            "There is already a Orvel emitter with the ID %d", id);
        return nullptr;
    } else {
        lastId_ = std::max(lastId_, id);
    }
    auto* emitter = new Emitter(*this, id, labels);
    createEmitter(*emitter);
    return emitter;
}

Emitter* World::getEmitter(int id) {
    return emitters_.find(id);
}

Source* World::createSource(int id) {
    if (id == 0) {
        id = nextId();
        if (id == 0) {
            return nullptr;
        }
    } else if (getSource(id) != nullptr) {
        ORVEL_REPORT(
            Fatal, detail::about(Diagnostic::Code::Misuse),
            "There is already a source with the ID %d\n", id);
        return nullptr;
    } else {
        lastId_ = std::max(lastId_, id);
    }
    auto* source = new Source(*this, id);
    createSource(*source);
    return source;
}

Source* World::getSource(int id) {
    return sources_.find(id);
}

bool World::update() {
    moves_.isFrameNew = true;
    for (Backend* backend : backends_) {
        backend->update();
    }
    return true;
}

Backend* World::addBackend(const char* type, const char* params) {
    if (type == nullptr) {
        type = "";
    }
    Backend* backend = BackendFactory::_the.createBackend(*this, std::string(type), params);
    if (backend == nullptr) {
        ORVEL_REPORT(
            Warning, detail::about(Diagnostic::Code::UnknownKind, {}, type),
            "Could not create Orvel backend: %s\n", type);
        return nullptr;
    }
    ORVEL_LOG(Notice, "Create new Orvel backend: %s\n", type);
    initBackendState(*backend);
    return backend;
}

void World::initBackendState(Backend& backend) {
    backend.setEnabled();
    backend.setListenerTransform();
    for (const auto& [id, source] : sources()) {
        if (source != nullptr) {
            backend.createSource(*source);
            backend.setSourceData(*source);
            backend.setSourceParam(*source);
            backend.setSourceState(*source);
        }
    }
    for (const auto& [id, emitter] : emitters()) {
        if (emitter != nullptr) {
            backend.createEmitter(*emitter);
            backend.setEmitterTransform(*emitter);
            backend.setEmitterHull(*emitter);
            backend.setEmitterParam(*emitter);
            backend.setEmitterConnection(*emitter);
            backend.setEmitterState(*emitter);
        }
    }
    if (!enabled_ && !listenerMoved_) {
        backend.setEnabled();
    }
}

void World::replaceScene(
    const std::function<void()>& change,
    const std::function<bool(const Backend& backend)>& follows) {
    notified_.remove_if([&follows](Backend* backend) {
        const bool waits = !follows(*backend);
        if (waits) {
            backend->resetBackend();
        }
        return waits;
    });
    try {
        change();
    } catch (...) {
        notified_ = backends_;
        throw;
    }
    for (Backend* backend : backends_) {
        // One that waited is empty; one that followed may have kept something of a step.
        if (std::ranges::find(notified_, backend) != notified_.end()) {
            backend->resetBackend();
        }
    }
    notified_ = backends_;
    for (Backend* backend : backends_) {
        initBackendState(*backend);
    }
}

void World::deleteAllBackends() {
    while (!backends_.empty()) {
        delete backends_.front(); // its destructor removes it from the list
    }
}

void World::print() {
    ORVEL_LOG(
        Log, "Orvel Emitter/Source/Backend count: %d/%d/%d\n", static_cast<int>(emitters().size()),
        static_cast<int>(sources().size()), static_cast<int>(backends_.size()));
}

void World::enter(Backend& backend) {
    backends_.push_back(&backend);
    notified_.push_back(&backend);
}

void World::leave(Backend& backend) {
    backends_.remove(&backend);
    notified_.remove(&backend);
}

void World::enter(Emitter& emitter) {
    emitters_.enter(emitter.id(), emitter);
}

void World::leave(Emitter& emitter) {
    emitters_.leave(emitter.id());
    std::ranges::replace(moves_.latest, &emitter, nullptr);
}

void World::enter(Source& source) {
    sources_.enter(source.id(), source);
}

void World::leave(Source& source) {
    sources_.leave(source.id());
}

} // namespace Orvel
