#include <Show/player/ScenePlayer.h>

#include <Show/player/SceneLength.h>
#include <Show/scene/SceneSources.h>

#include <Orvel/Emitter.h>
#include <Orvel/SceneEdits.h>
#include <Orvel/Source.h>

#include <algorithm>
#include <initializer_list>
#include <iterator>
#include <limits>
#include <utility>
#include <vector>

namespace Show {

namespace {

using State = Orvel::WorldPart::State;

/// Changing whether an emitter is spatial does not notify the back ends by itself.
void placeAnew(Orvel::World& world, Orvel::Emitter& emitter) {
    world.setEmitterTransform(emitter);
    world.setEmitterHull(emitter);
}

/// Starts one property of a change: at once, or from its current value over a time. Returns false
/// if there is nothing to set now.
template <class Value>
bool startChange(
    const std::optional<Value>& target, const Change& change, std::optional<Ramp<Value>>& ramp,
    Value& value) {
    if (!target) {
        return false;
    }
    const Value from = ramp ? ramp->at(change.at) : value;
    ramp.reset();
    if (change.over > 0.0) {
        ramp = Ramp<Value>{change.at, change.at + change.over, from, *target};
        return false;
    }
    value = *target;
    return true;
}

/// The current value of a moving property; removes the ramp when it is complete. Returns false if
/// the property does not move.
template <class Value>
bool follow(std::optional<Ramp<Value>>& ramp, double seconds, Value& value) {
    if (!ramp) {
        return false;
    }
    value = ramp->at(seconds);
    if (seconds >= ramp->end) {
        ramp.reset();
    }
    return true;
}

} // namespace

ScenePlayer::ScenePlayer(
    const Scene& scene, const SoundBank& sounds, Orvel::World& world, LongFiles longFiles)
    : ScenePlayer(
          scene, sounds, world, [&sounds, longFiles](Orvel::Source& source, const Sound& sound) {
              giveSound(sounds, source, sound, longFiles);
          }) {}

ScenePlayer::ScenePlayer(
    const Scene& scene, const SoundBank& sounds, Orvel::World& world, GiveSound give)
    : scene_(scene), sounds_(sounds), world_(world), overrides_(world),
      give_([this, give = std::move(give)](Orvel::Source& source, const Sound& sound) {
          given_[source.id()] = sound;
          give(source, sound);
      }) {
    const auto add = [this](int id, const Sound& sound) {
        if (std::holds_alternative<SoundUrl>(sound)) {
            fetched_.push_back(id);
        }
    };
    for (const SourceSpec& source : scene.sources) {
        add(source.id, source.sound);
    }
    for (const Change& change : scene.timeline) {
        add(change.id, change.newSource ? change.newSource->sound : change.sound);
    }
}

void ScenePlayer::clear() {
    overrides_.forgetEmitters();
    while (!world_.emitters().empty()) {
        delete world_.emitters().begin()->second;
    }
    const std::map<int, Sound> given = std::exchange(given_, {});
    for (const SourceSpec& spec : scene_.sources) {
        const auto found = given.find(spec.id);
        if (found != given.end() && found->second == spec.sound) {
            given_.insert(*found);
        }
    }
    const std::map<int, Orvel::Source*> sources = world_.sources();
    for (const auto& [id, source] : sources) {
        if (!given_.contains(id)) {
            delete source;
        }
    }
}

void ScenePlayer::prepare() {
    next_ = 0;
    listener_ = {};
    emitters_.clear();
    pitches_.clear();
    clear();
    world_.setSpatialize(true);
    if (!world_.enabled()) {
        world_.setEnabled(true);
    }
    overrides_.moveListener(scene_.listenerPosition, scene_.listenerRotation);
    for (const SourceSpec& source : scene_.sources) {
        if (Orvel::Source* kept = world_.getSource(source.id)) {
            kept->setParam(source.loop, source.pitch);
            if (kept->state() != State::NONE) {
                kept->setState(State::STOP);
            }
        } else {
            createSource(world_, source, give_);
        }
    }
}

void ScenePlayer::start() {
    prepare();
    for (const EmitterSpec& emitter : scene_.emitters) {
        createEmitter(emitter);
    }
    // After all connections, since a state spreads to connected parts.
    for (const SourceSpec& source : scene_.sources) {
        if (source.state != State::NONE) {
            world_.getSource(source.id)->setState(source.state);
        }
    }
    for (const EmitterSpec& emitter : scene_.emitters) {
        if (emitter.state != State::NONE) {
            world_.getEmitter(emitter.id)->setState(emitter.state);
        }
    }
    advance(0.0);
}

void ScenePlayer::advance(double seconds) {
    while (next_ < scene_.timeline.size() && scene_.timeline[next_].at <= seconds) {
        apply(scene_.timeline[next_++]);
    }
    move(seconds);
}

template <class Visit>
void ScenePlayer::visitRamps(Visit visit) const {
    const auto visitAny = [&](const auto&... ramps) {
        (..., (ramps ? visit(ramps->end) : void()));
    };
    visitAny(listener_.position, listener_.rotation);
    for (const auto& [id, e] : emitters_) {
        visitAny(e.position, e.rotation, e.gain, e.value);
        std::apply(visitAny, e.hull);
    }
    for (const auto& [id, ramp] : pitches_) {
        visit(ramp.end);
    }
}

double ScenePlayer::nextChange(double seconds) const {
    double next = std::numeric_limits<double>::infinity();
    const auto later = std::upper_bound(
        scene_.timeline.begin(), scene_.timeline.end(), seconds,
        [](double time, const Change& change) { return time < change.at; });
    if (later != scene_.timeline.end()) {
        next = later->at;
    }
    visitRamps([&](double end) {
        if (end > seconds) {
            next = std::min(next, end);
        }
    });
    return next;
}

bool ScenePlayer::moving() const {
    return !emitters_.empty() || !pitches_.empty() || listener_.position || listener_.rotation;
}

double ScenePlayer::end() const {
    if (scene_.duration) {
        return *scene_.duration;
    }
    std::vector<float> lengths;
    for (const int id : fetched_) {
        const Orvel::Source* source = world_.getSource(id);
        lengths.push_back(source == nullptr ? 0.0F : source->duration());
    }
    if (end_ < 0.0 || lengths != lengths_) {
        end_ = playingEnd(scene_, sounds_, world_);
        lengths_ = std::move(lengths);
    }
    return end_;
}

void ScenePlayer::createEmitter(const EmitterSpec& spec) {
    Orvel::Emitter* emitter = world_.createEmitter(spec.labels, spec.id);
    if (emitter == nullptr) {
        return;
    }
    // All values are sent, because a back end's defaults may differ from the library's.
    overrides_.setParam(*emitter, spec.spatial, spec.value, spec.gain);
    const Orvel::Vec3f position = emitter->position();
    const Orvel::Quaternion rotation = emitter->rotation();
    overrides_.setTransform(*emitter, spec.position, spec.rotation);
    if (position == emitter->position() && rotation == emitter->rotation()) {
        world_.setEmitterTransform(*emitter);
    }
    emitter->setHull(spec.hull);
    if (spec.source) {
        emitter->setSource(world_.getSource(*spec.source));
    }
}

void ScenePlayer::destroyEmitter(Orvel::Emitter& emitter) {
    emitters_.erase(emitter.id());
    delete &emitter;
}

void ScenePlayer::apply(const Change& change) {
    switch (change.target) {
    case Change::Target::World:
        applyToWorld(change);
        break;
    case Change::Target::Listener:
        applyToListener(change);
        break;
    case Change::Target::Source:
        if (change.newSource) {
            createSource(world_, *change.newSource, give_);
        }
        if (Orvel::Source* source = world_.getSource(change.id)) {
            applyToSource(change, *source);
        }
        break;
    case Change::Target::Emitter:
        if (change.newEmitter) {
            createEmitter(*change.newEmitter);
        }
        if (Orvel::Emitter* emitter = world_.getEmitter(change.id)) {
            applyToEmitter(change, *emitter);
        }
        break;
    }
}

void ScenePlayer::applyToWorld(const Change& change) {
    if (change.enabled) {
        world_.setEnabled(*change.enabled);
    }
    if (change.spatialize) {
        world_.setSpatialize(*change.spatialize);
        for (const auto& [id, emitter] : world_.emitters()) {
            placeAnew(world_, *emitter);
        }
    }
}

void ScenePlayer::applyToListener(const Change& change) {
    Orvel::Vec3f position = overrides_.listenerPosition();
    Orvel::Quaternion rotation = overrides_.listenerRotation();
    const bool moved = startChange(change.position, change, listener_.position, position);
    if (startChange(change.rotation, change, listener_.rotation, rotation) || moved) {
        overrides_.moveListener(position, rotation);
    }
}

void ScenePlayer::applyToSource(const Change& change, Orvel::Source& source) {
    if (change.destroy) {
        pitches_.erase(source.id());
        destroy(source);
        return;
    }
    if (!std::holds_alternative<std::monostate>(change.sound)) {
        changeSound(source, [&](Orvel::Source& free) { give_(free, change.sound); });
    }
    float pitch = source.pitch();
    std::optional<Ramp<float>> ramp;
    if (const auto found = pitches_.find(source.id()); found != pitches_.end()) {
        ramp = found->second;
        if (change.pitch) {
            pitches_.erase(found);
        }
    }
    const bool pitched = startChange(change.pitch, change, ramp, pitch);
    if (change.pitch && ramp) {
        pitches_.insert_or_assign(source.id(), *ramp);
    }
    if (pitched || change.loop) {
        source.setParam(change.loop.value_or(source.loop()), pitch);
    }
    const State state = change.newSource ? change.newSource->state : State::NONE;
    if (change.state.value_or(state) != State::NONE) {
        source.setState(change.state.value_or(state));
    }
}

void ScenePlayer::applyToEmitter(const Change& change, Orvel::Emitter& emitter) {
    if (change.destroy) {
        destroyEmitter(emitter);
        return;
    }
    EmitterRamps& ramps = emitters_[emitter.id()];
    float gain = overrides_.gain(emitter);
    float value = emitter.paramValue();
    bool changed = startChange(change.gain, change, ramps.gain, gain);
    changed = startChange(change.value, change, ramps.value, value) || changed;
    const bool replaced = change.spatial && *change.spatial != emitter.paramFlag();
    if (changed || replaced) {
        overrides_.setParam(emitter, change.spatial.value_or(emitter.paramFlag()), value, gain);
    }
    if (replaced) {
        placeAnew(world_, emitter);
    }
    Orvel::Vec3f position = overrides_.position(emitter);
    Orvel::Quaternion rotation = overrides_.rotation(emitter);
    changed = startChange(change.position, change, ramps.position, position);
    if (startChange(change.rotation, change, ramps.rotation, rotation) || changed) {
        overrides_.setTransform(emitter, position, rotation);
    }
    Orvel::Hull hull = emitter.hull();
    changed = false;
    for (std::size_t i = 0; i < ramps.hull.size(); ++i) {
        float& extent = hull.*Orvel::kHullExtents[i].value;
        changed = startChange(change.hull[i], change, ramps.hull[i], extent) || changed;
    }
    if (changed) {
        emitter.setHull(hull);
    }
    if (change.reconnect) {
        reconnect(emitter, change.connect ? world_.getSource(*change.connect) : nullptr);
    }
    const State state = change.newEmitter ? change.newEmitter->state : State::NONE;
    if (change.state.value_or(state) != State::NONE) {
        emitter.setState(change.state.value_or(state));
    }
}

void ScenePlayer::move(double seconds) {
    Orvel::Vec3f position = overrides_.listenerPosition();
    Orvel::Quaternion rotation = overrides_.listenerRotation();
    const bool moved = follow(listener_.position, seconds, position);
    if (follow(listener_.rotation, seconds, rotation) || moved) {
        overrides_.moveListener(position, rotation);
    }
    for (auto entry = pitches_.begin(); entry != pitches_.end();) {
        if (Orvel::Source* source = world_.getSource(entry->first)) {
            source->setParam(source->loop(), entry->second.at(seconds));
        }
        entry = seconds >= entry->second.end ? pitches_.erase(entry) : std::next(entry);
    }
    for (auto entry = emitters_.begin(); entry != emitters_.end();) {
        EmitterRamps& ramps = entry->second;
        if (Orvel::Emitter* emitter = world_.getEmitter(entry->first)) {
            move(*emitter, ramps, seconds);
        }
        const bool still = !ramps.position && !ramps.rotation && !ramps.gain && !ramps.value &&
                           std::ranges::none_of(ramps.hull, &MaybeRamp<float>::has_value);
        entry = still ? emitters_.erase(entry) : std::next(entry);
    }
}

void ScenePlayer::move(Orvel::Emitter& emitter, EmitterRamps& ramps, double seconds) {
    Orvel::Vec3f position = overrides_.position(emitter);
    Orvel::Quaternion rotation = overrides_.rotation(emitter);
    bool changed = follow(ramps.position, seconds, position);
    if (follow(ramps.rotation, seconds, rotation) || changed) {
        overrides_.setTransform(emitter, position, rotation);
    }
    Orvel::Hull hull = emitter.hull();
    changed = false;
    for (std::size_t i = 0; i < ramps.hull.size(); ++i) {
        float& extent = hull.*Orvel::kHullExtents[i].value;
        changed = follow(ramps.hull[i], seconds, extent) || changed;
    }
    if (changed) {
        emitter.setHull(hull);
    }
    float gain = overrides_.gain(emitter);
    float value = emitter.paramValue();
    changed = follow(ramps.gain, seconds, gain);
    if (follow(ramps.value, seconds, value) || changed) {
        overrides_.setParam(emitter, emitter.paramFlag(), value, gain);
    }
}

} // namespace Show
