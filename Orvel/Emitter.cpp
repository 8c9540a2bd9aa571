#include <Orvel/Emitter.h>

#include <Orvel/Source.h>
#include <Orvel/World.h>
#include <Orvel/detail/net/SameTransform.h>

#include <cstddef>
#include <utility>

namespace Orvel {

namespace {

/// Reads one float. The compiler combines neighbouring reads into a wider one, which has to wait if
/// the host has just written the floats one by one: the processor passes a pending write on to a
/// read of the same size at once, but a wider read waits until the writes are in the cache.
float readAlone(const float& value) {
    return static_cast<const volatile float&>(value);
}

} // namespace

Emitter::Emitter(World& world, int id, const std::vector<std::string>& labels)
    : WorldPart(world, id), labels_(labels) {
    world.enter(*this);
}

Emitter::~Emitter() {
    setSource(nullptr);
    world().destroyEmitter(*this);
    world().leave(*this);
}

void Emitter::setState(State state) {
    if (!changeState(state)) {
        return;
    }
    world().setEmitterState(*this);
    if (source_ != nullptr) {
        source_->setState(state);
    }
}

/// Emitters usually move in the same order in each frame. So this fetches, from memory that other
/// work may have displaced from the cache, the one that moved some places later the last time; and
/// at the first move of a frame, those that the last moves of the frame before have fetched.
inline void Emitter::fetchLater() {
    World::Moves& moves = world().moves_;
    if (moves.isFrameNew) {
        moves.isFrameNew = false;
        for (const Emitter* emitter : moves.fetched) {
            __builtin_prefetch(emitter);
        }
    }
    const std::size_t place = moves.count++ % moves.latest.size();
    if (Emitter* const earlier = std::exchange(moves.latest[place], this)) {
        earlier->later_ = this;
    }
    moves.fetched[place] = later_;
    __builtin_prefetch(later_);
}

void Emitter::setTransform(const Vec3f* position, const Quaternion* rotation) {
    fetchLater();
    bool changed = false;
    if (position != nullptr) {
        const Vec3f to{readAlone(position->x), readAlone(position->y), readAlone(position->z)};
        if (!detail::same(to, position_)) {
            position_ = to;
            changed = true;
        }
    }
    if (rotation != nullptr) {
        const Quaternion to{
            readAlone(rotation->x), readAlone(rotation->y), readAlone(rotation->z),
            readAlone(rotation->w)};
        if (!detail::same(to, rotation_)) {
            rotation_ = to;
            changed = true;
        }
    }
    if (changed) {
        world().setEmitterTransform(*this);
    }
}

void Emitter::setHull(const Hull& hull) {
    hull_ = hull;
    world().setEmitterHull(*this);
}

void Emitter::setHull(float maxBack, float maxFront, float minBack, float minFront) {
    setHull({maxBack, maxFront, minBack, minFront});
}

void Emitter::setRadius(float radius) {
    radius_ = radius;
    world().setEmitterHull(*this);
}

void Emitter::setParam(bool paramFlag, float paramValue, float gain) {
    paramFlag_ = paramFlag;
    paramValue_ = paramValue;
    gain_ = gain;
    world().setEmitterParam(*this);
}

bool Emitter::isSpatial() const {
    return paramFlag_ && world().spatialize();
}

void Emitter::setSource(Source* source) {
    if (source == source_) {
        return;
    }
    if (source_ != nullptr) {
        source_->connectedEmitters_.erase(id());
    }
    source_ = source;
    if (source != nullptr) {
        auto& emitters = source->connectedEmitters_;
        emitters.insert_or_assign(emitters.end(), id(), this);
    }
    world().setEmitterConnection(*this);
}

} // namespace Orvel
