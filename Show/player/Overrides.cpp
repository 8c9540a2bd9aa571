#include <Show/player/Overrides.h>

#include <Orvel/SceneEdits.h>

namespace Show {

namespace {

/// Starts, changes or ends the override of a property. Returns the value that the part has then.
template <class Value>
Value overridden(
    const std::optional<Value>& hand, std::optional<Value>& timeline, const Value& now) {
    if (hand) {
        timeline = timeline.value_or(now);
        return *hand;
    }
    const Value value = timeline.value_or(now);
    timeline.reset();
    return value;
}

} // namespace

const Overrides::Entry* Overrides::find(int id) const {
    if (entries_.empty()) {
        return nullptr;
    }
    const auto found = entries_.find(id);
    return found == entries_.end() ? nullptr : &found->second;
}

Orvel::Vec3f Overrides::position(const Orvel::Emitter& emitter) const {
    const Entry* entry = find(emitter.id());
    return entry == nullptr ? emitter.position() : entry->position.value_or(emitter.position());
}

Orvel::Quaternion Overrides::rotation(const Orvel::Emitter& emitter) const {
    const Entry* entry = find(emitter.id());
    return entry == nullptr ? emitter.rotation() : entry->rotation.value_or(emitter.rotation());
}

float Overrides::gain(const Orvel::Emitter& emitter) const {
    const Entry* entry = find(emitter.id());
    return entry == nullptr ? emitter.gain() : entry->gain.value_or(emitter.gain());
}

Orvel::Vec3f Overrides::listenerPosition() const {
    const Entry* entry = find(kListener);
    return entry == nullptr ? world_.listenerPosition()
                            : entry->position.value_or(world_.listenerPosition());
}

Orvel::Quaternion Overrides::listenerRotation() const {
    const Entry* entry = find(kListener);
    return entry == nullptr ? world_.listenerRotation()
                            : entry->rotation.value_or(world_.listenerRotation());
}

Overrides::Entry* Overrides::entryOf(const Orvel::Emitter& emitter) {
    if (entries_.empty()) {
        return nullptr;
    }
    if (solos_ > 0) {
        return &entries_[emitter.id()];
    }
    const auto found = entries_.find(emitter.id());
    return found == entries_.end() ? nullptr : &found->second;
}

void Overrides::setTransform(
    Orvel::Emitter& emitter, const Orvel::Vec3f& position, const Orvel::Quaternion& rotation) {
    Entry* entry = entryOf(emitter);
    if (entry == nullptr) {
        emitter.setTransform(&position, &rotation);
        return;
    }
    const Override& hand = entry->hand;
    if (hand.position) {
        entry->position = position;
    }
    if (hand.rotation) {
        entry->rotation = rotation;
    }
    const Orvel::Vec3f place = hand.position.value_or(position);
    const Orvel::Quaternion turn = hand.rotation.value_or(rotation);
    emitter.setTransform(&place, &turn);
}

void Overrides::setParam(Orvel::Emitter& emitter, bool spatial, float value, float gain) {
    if (Entry* entry = entryOf(emitter)) {
        const bool silent = isSilent(entry->hand);
        if (silent || entry->hand.gain) {
            entry->gain = gain;
            gain = silent ? 0.0F : *entry->hand.gain;
        }
    }
    emitter.setParam(spatial, value, gain);
}

void Overrides::moveListener(const Orvel::Vec3f& position, const Orvel::Quaternion& rotation) {
    Override hand;
    if (const auto found = entries_.find(kListener); found != entries_.end()) {
        hand = found->second.hand;
        if (hand.position) {
            found->second.position = position;
        }
        if (hand.rotation) {
            found->second.rotation = rotation;
        }
    }
    Orvel::moveListener(world_, hand.position.value_or(position), hand.rotation.value_or(rotation));
}

void Overrides::forgetEmitters() {
    for (auto& [id, entry] : entries_) {
        entry.position.reset();
        entry.rotation.reset();
        entry.gain.reset();
    }
    removeUnused();
}

Override Overrides::get(int id) const {
    const Entry* entry = find(id);
    return entry == nullptr ? Override() : entry->hand;
}

void Overrides::set(int id, const Override& override) {
    Entry& entry = entries_[id];
    const bool hadSolo = entry.hand.solo;
    const bool anySolo = solos_ > 0;
    entry.hand = override;
    solos_ += static_cast<int>(override.solo) - static_cast<int>(hadSolo);
    Orvel::Emitter* emitter = id == kListener ? nullptr : world_.getEmitter(id);
    if (id == kListener || emitter != nullptr) {
        const Orvel::Vec3f position = overridden(
            override.position, entry.position,
            emitter != nullptr ? emitter->position() : world_.listenerPosition());
        const Orvel::Quaternion rotation = overridden(
            override.rotation, entry.rotation,
            emitter != nullptr ? emitter->rotation() : world_.listenerRotation());
        if (emitter != nullptr) {
            emitter->setTransform(&position, &rotation);
            applyGain(*emitter, entry);
        } else {
            Orvel::moveListener(world_, position, rotation);
        }
    }
    if (anySolo != (solos_ > 0)) {
        for (const auto& [other, each] : world_.emitters()) {
            applyGain(*each, entries_[other]);
        }
    }
    if (solos_ == 0) {
        removeUnused();
    }
}

std::map<int, Override> Overrides::all() const {
    std::map<int, Override> all;
    for (const auto& [id, entry] : entries_) {
        if (!entry.hand.empty()) {
            all.emplace_hint(all.end(), id, entry.hand);
        }
    }
    return all;
}

void Overrides::applyGain(Orvel::Emitter& emitter, Entry& entry) const {
    const std::optional<float> hand = isSilent(entry.hand) ? std::optional(0.0F) : entry.hand.gain;
    const float gain = overridden(hand, entry.gain, emitter.gain());
    if (gain != emitter.gain()) {
        emitter.setParam(emitter.paramFlag(), emitter.paramValue(), gain);
    }
}

void Overrides::removeUnused() {
    std::erase_if(entries_, [](const auto& entry) { return entry.second.hand.empty(); });
}

} // namespace Show
