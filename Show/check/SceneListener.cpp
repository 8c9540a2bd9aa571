#include <Show/check/SceneListener.h>

#include <Orvel/detail/attenuation.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace Show {

namespace {

using State = Orvel::WorldPart::State;
using Orvel::Vec3f;

float product(const Vec3f& a, const Vec3f& b) {
    return a.x * b.x + a.y * b.y + a.z * b.z;
}

Vec3f difference(const Vec3f& a, const Vec3f& b) {
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}

/// The distance of a line segment from the origin.
float nearestOf(const Vec3f& from, const Vec3f& to) {
    const Vec3f way = difference(to, from);
    const float square = product(way, way);
    const float part = square > 0.0F ? std::clamp(-product(from, way) / square, 0.0F, 1.0F) : 0.0F;
    const Vec3f nearest{from.x + part * way.x, from.y + part * way.y, from.z + part * way.z};
    return std::sqrt(product(nearest, nearest));
}

float inner(const Orvel::Hull& hull) {
    return (hull.minBack + hull.minFront) / 2.0F;
}

float outer(const Orvel::Hull& hull) {
    return (hull.maxBack + hull.maxFront) / 2.0F;
}

template <class Spec>
Spec* takeNext(std::unordered_map<int, std::deque<Spec*>>& specs, int id) {
    const auto found = specs.find(id);
    if (found == specs.end() || found->second.empty()) {
        return nullptr;
    }
    Spec* spec = found->second.front();
    found->second.pop_front();
    return spec;
}

} // namespace

SceneListener::SceneListener(Orvel::World& world, const LoadedScene& loaded)
    : SilentBackend(world, nullptr), sounds_(loaded.sounds) {
    for (const EmitterSpec& emitter : loaded.scene.emitters) {
        emitterSpecs_[emitter.id].push_back(&emitter);
    }
    for (const SourceSpec& source : loaded.scene.sources) {
        sourceSpecs_[source.id].push_back(&source);
    }
    for (const Change& change : loaded.scene.timeline) {
        if (change.newEmitter) {
            emitterSpecs_[change.id].push_back(&*change.newEmitter);
        }
        if (change.newSource) {
            sourceSpecs_[change.id].push_back(&*change.newSource);
        }
    }
}

void SceneListener::setSound(int source, const Sound& sound) {
    const auto shape = sounds_.shapeOf(sound);
    sources_[source].stereo = shape && shape->channels == 2;
}

std::vector<const SourceSpec*> SceneListener::unusedSources() const {
    return {unused_.begin(), unused_.end()};
}

void SceneListener::createSource(Orvel::Source& source) {
    const SourceSpec* spec = takeNext(sourceSpecs_, source.id());
    sources_[source.id()] = {spec, false};
    if (spec != nullptr) {
        unused_.insert(spec);
    }
}

void SceneListener::createEmitter(Orvel::Emitter& emitter) {
    const EmitterSpec* spec = takeNext(emitterSpecs_, emitter.id());
    if (spec == nullptr) {
        return;
    }
    present_[emitter.id()] = {emitters_.size(), std::nullopt};
    emitters_.push_back({.spec = spec});
    maxEmitters_ = std::max(maxEmitters_, present_.size());
}

void SceneListener::destroyEmitter(Orvel::Emitter& emitter) {
    present_.erase(emitter.id());
    changed_.erase(emitter.id());
}

void SceneListener::setEmitterConnection(Orvel::Emitter& emitter) {
    if (emitter.source() != nullptr) {
        unused_.erase(sources_[emitter.source()->id()].spec);
    }
    changed_.insert(emitter.id());
}

void SceneListener::setEmitterState(Orvel::Emitter& emitter) {
    const auto found = present_.find(emitter.id());
    if (found != present_.end() && emitter.state() == State::PLAY) {
        emitters_[found->second.history].played = true; // even if only for a moment
    }
    changed_.insert(emitter.id());
}

void SceneListener::listen(bool jump) {
    if (everything_) {
        for (auto& [id, present] : present_) {
            listen(*world().getEmitter(id), present, jump);
        }
    } else {
        for (const int id : changed_) {
            if (const auto found = present_.find(id); found != present_.end()) {
                listen(*world().getEmitter(id), found->second, jump);
            }
        }
    }
    everything_ = false;
    changed_.clear();
}

void SceneListener::listen(const Orvel::Emitter& emitter, Present& present, bool jump) {
    EmitterHistory& history = emitters_[present.history];
    const std::optional<Moment> last = std::exchange(present.last, std::nullopt);
    if (emitter.state() != State::PLAY || emitter.source() == nullptr) {
        return;
    }
    history.connected = true;
    if (!world().enabled()) {
        return;
    }
    history.enabled = true;
    const Moment now{
        difference(emitter.position(), world().listenerPosition()), emitter.hull(), emitter.gain()};
    present.last = now;
    // While something moves, the loudest level since the last call counts.
    const Moment& before = last && !jump ? *last : now;
    const float gain = std::max(now.gain, before.gain);
    const float distance = nearestOf(before.position, now.position);
    const bool spatial = emitter.isSpatial() && !sources_[emitter.source()->id()].stereo;
    const float factor = spatial ? std::max(
                                       Orvel::detail::attenuation(reachOf(now.hull), distance),
                                       Orvel::detail::attenuation(reachOf(before.hull), distance))
                                 : 1.0F;
    history.highestGain = std::max(history.highestGain, gain);
    history.loudest = std::max(history.loudest, std::min(1.0F, gain * factor));
    history.nearest = std::min(history.nearest, distance);
    if (spatial) {
        constexpr float kHere = 0.001F; // a sound this near is heard even with an empty hull
        history.withoutInner |= inner(now.hull) <= 0.0F && distance > kHere;
        if (now.hull.minBack > now.hull.maxBack || now.hull.minFront > now.hull.maxFront) {
            history.innerAboveOuter = true;
            history.softest = Orvel::detail::attenuation(
                reachOf(now.hull), std::numeric_limits<float>::infinity());
        }
        history.withinOuter |= distance <= std::max(outer(now.hull), outer(before.hull));
    } else {
        history.withinOuter = true;
    }
    if (now.gain > 1.0F) {
        const float there = std::sqrt(product(now.position, now.position));
        const float product =
            now.gain * (spatial ? Orvel::detail::attenuation(reachOf(now.hull), there) : 1.0F);
        history.amplified = true;
        history.leastExcess = std::min(history.leastExcess, std::max(1.0F, product));
    }
}

} // namespace Show
