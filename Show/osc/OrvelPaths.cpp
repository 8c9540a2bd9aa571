#include <Show/osc/OrvelPaths.h>

#include <Show/scene/SceneFile.h>
#include <Show/scene/YawPitchRoll.h>

#include <Orvel/SceneEdits.h>

#include <algorithm>
#include <chrono>
#include <cmath>

namespace Show {

namespace {

using State = OscEdits::State;

constexpr float kMaxFade = 3600.0F; // seconds
constexpr std::array kIds{OscRange{0.0F, static_cast<float>(kMaxId)}};
constexpr std::array kSwitch{OscRange{0.0F, 1.0F}};
constexpr const char* kNoRotation = "expected a quaternion, found one of length 0";

/// Three numbers are yaw, pitch and roll in degrees, four a quaternion of any length but 0.
bool toRotation(OscNumbers n, Orvel::Quaternion& rotation) {
    constexpr float kShortest = 1e-4F;
    if (n.size() == 3) {
        rotation = fromYawPitchRoll(n[0], n[1], n[2]);
        return true;
    }
    const float length = std::hypot(std::hypot(n[0], n[1]), std::hypot(n[2], n[3]));
    if (length < kShortest || !std::isfinite(length)) {
        return false;
    }
    rotation = {n[0] / length, n[1] / length, n[2] / length, n[3] / length};
    return true;
}

} // namespace

OrvelPaths::OrvelPaths(const OscEdits& edits, AdmPaths& adm)
    : edits_(edits), adm_(adm), emitterPaths_(emitterPaths()), sourcePaths_(sourcePaths()),
      listenerPaths_(listenerPaths()), worldPaths_(worldPaths()) {}

template <class Part>
OscEntry<Part> OrvelPaths::stateEntry(const char* name, const char* meaning, State state) {
    return {
        .name = name,
        .meaning = meaning,
        .counts = {0, 1},
        .take = [this, state](Part& part, OscNumbers n) {
            if (!isRelease(n) && state == State::PLAY) {
                Orvel::restart(part, edits_);
            } else if (!isRelease(n)) {
                edits_.setState(part, state);
            }
            return nullptr;
        }};
}

OscFamily<Orvel::Emitter> OrvelPaths::emitterPaths() {
    using Emitter = Orvel::Emitter;
    return {
        "/orvel/emitter/",
        {
            {.name = "position",
             .meaning = "Position x y z in scene units",
             .counts = {3},
             .take =
                 [this](Emitter& emitter, OscNumbers n) {
                     edits_.move(emitter, {n[0], n[1], n[2]});
                     return nullptr;
                 },
             .read = [](Emitter& emitter) { return OscValues::floats(emitter.position()); }},
            {.name = "orientation",
             .meaning = "Quaternion x y z w, or yaw pitch roll in degrees",
             .counts = {4, 3},
             .take = [this](Emitter& emitter, OscNumbers n) -> OscExpected {
                 Orvel::Quaternion rotation;
                 if (!toRotation(n, rotation)) {
                     return kNoRotation;
                 }
                 edits_.rotate(emitter, rotation);
                 return nullptr;
             },
             .read = [](Emitter& emitter) { return OscValues::floats(emitter.rotation()); },
             .sent = true},
            {.name = "gain",
             .meaning = "Linear gain; with a second number a fade in seconds",
             .ranges = kOscFromZero,
             .counts = {1, 2},
             .take = [this](Emitter& emitter, OscNumbers n) -> OscExpected {
                 if (n[0] < 0.0F) {
                     return "expected a gain of at least 0";
                 }
                 if (n.size() == 2 && !(n[1] >= 0.0F && n[1] <= kMaxFade)) {
                     return "expected a time of 0 to 3600 s";
                 }
                 const std::chrono::duration<float> over(n.size() == 2 ? n[1] : 0.0F);
                 adm_.setGain(
                     emitter, n[0], std::chrono::duration_cast<GainFades::Clock::duration>(over));
                 return nullptr;
             },
             .read = [this](Emitter& emitter) { return adm_.readGain(emitter); }},
            {.name = "value",
             .meaning = "The host's own value",
             .counts = {1},
             .take =
                 [this](Emitter& emitter, OscNumbers n) {
                     edits_.setValue(emitter, n[0]);
                     return nullptr;
                 },
             .read = [](Emitter& emitter) { return OscValues::floats({emitter.paramValue()}); },
             .sent = true},
            {.name = "hull",
             .meaning = "maxBack maxFront minBack minFront in scene units",
             .ranges = kOscFromZero,
             .counts = {4},
             .take = [this](Emitter& emitter, OscNumbers n) -> OscExpected {
                 if (std::ranges::any_of(n, [](float extent) { return extent < 0.0F; })) {
                     return "expected extents of at least 0";
                 }
                 edits_.setHull(emitter, {n[0], n[1], n[2], n[3]});
                 return nullptr;
             },
             .read =
                 [](Emitter& emitter) {
                     const Orvel::Hull& hull = emitter.hull();
                     return OscValues::floats(
                         {hull.maxBack, hull.maxFront, hull.minBack, hull.minFront});
                 },
             .sent = true},
            {.name = "source",
             .meaning = "Id of the source; 0: none",
             .ranges = kIds,
             .counts = {1},
             .take = [this](Emitter& emitter, OscNumbers n) -> OscExpected {
                 const bool valid = n[0] >= 0.0F && n[0] <= static_cast<float>(kMaxId);
                 const auto id = valid ? static_cast<int>(n[0]) : 0;
                 Orvel::Source* source = edits_.world().getSource(id);
                 if (static_cast<float>(id) != n[0] || (id != 0 && source == nullptr)) {
                     return "expected the id of a source, or 0";
                 }
                 Orvel::reconnect(emitter, source, edits_);
                 return nullptr;
             },
             .read =
                 [](Emitter& emitter) {
                     return OscValues::whole(
                         emitter.source() == nullptr ? 0 : emitter.source()->id());
                 },
             .sent = true},
            stateEntry<Emitter>("play", "Play from the beginning, or go on", State::PLAY),
            stateEntry<Emitter>("pause", "Pause", State::PAUSE),
            stateEntry<Emitter>("stop", "Stop", State::STOP),
            {.name = "destroy",
             .meaning = "Destroy the emitter",
             .counts = {0, 1},
             .take =
                 [this](Emitter& emitter, OscNumbers n) {
                     if (!isRelease(n)) {
                         adm_.forget(emitter.id());
                         edits_.destroy(emitter);
                     }
                     return nullptr;
                 }},
        }};
}

OscFamily<Orvel::Source> OrvelPaths::sourcePaths() {
    using Source = Orvel::Source;
    return {
        "/orvel/source/",
        {
            {.name = "pitch",
             .meaning = "Factor on the playing speed",
             .ranges = kOscFromZero,
             .counts = {1},
             .take = [this](Source& source, OscNumbers n) -> OscExpected {
                 if (n[0] <= 0.0F) {
                     return "expected a pitch above 0";
                 }
                 edits_.setParam(source, source.loop(), n[0]);
                 return nullptr;
             },
             .read = [](Source& source) { return OscValues::floats({source.pitch()}); },
             .sent = true},
            {.name = "loop",
             .meaning = "Repeat",
             .ranges = kSwitch,
             .counts = {1},
             .take =
                 [this](Source& source, OscNumbers n) {
                     edits_.setParam(source, n[0] != 0.0F, source.pitch());
                     return nullptr;
                 },
             .read = [](Source& source) { return OscValues::whole(source.loop() ? 1 : 0); },
             .sent = true},
            stateEntry<Source>("play", "Play with all its emitters", State::PLAY),
            stateEntry<Source>("pause", "Pause with all its emitters", State::PAUSE),
            stateEntry<Source>("stop", "Stop with all its emitters", State::STOP),
        }};
}

OscFamily<Orvel::World> OrvelPaths::listenerPaths() {
    return {
        "/orvel/listener/",
        {
            {.name = "position",
             .meaning = "Position x y z in scene units",
             .counts = {3},
             .take =
                 [this](Orvel::World& world, OscNumbers n) {
                     Orvel::moveListener(
                         world, {n[0], n[1], n[2]}, world.listenerRotation(), edits_);
                     return nullptr;
                 },
             .read =
                 [](Orvel::World& world) { return OscValues::floats(world.listenerPosition()); }},
            {.name = "orientation",
             .meaning = "Quaternion x y z w, or yaw pitch roll in degrees",
             .counts = {4, 3},
             .take = [this](Orvel::World& world, OscNumbers n) -> OscExpected {
                 Orvel::Quaternion rotation;
                 if (!toRotation(n, rotation)) {
                     return kNoRotation;
                 }
                 Orvel::moveListener(world, world.listenerPosition(), rotation, edits_);
                 return nullptr;
             },
             .read =
                 [](Orvel::World& world) { return OscValues::floats(world.listenerRotation()); }},
        }};
}

OscFamily<Orvel::World> OrvelPaths::worldPaths() {
    return {
        "/orvel/",
        {
            {.name = "enabled",
             .meaning = "Whether anything is heard",
             .ranges = kSwitch,
             .counts = {1},
             .take =
                 [this](Orvel::World& world, OscNumbers n) {
                     edits_.setEnabled(world, n[0] != 0.0F);
                     return nullptr;
                 },
             .read = [](Orvel::World& world) { return OscValues::whole(world.enabled() ? 1 : 0); },
             .sent = true},
            subscriptionEntry("subscribe", "Send what changes to the sender of this", true),
            subscriptionEntry("unsubscribe", "Send it no more", false),
        }};
}

OscEntry<Orvel::World>
OrvelPaths::subscriptionEntry(const char* name, const char* meaning, bool wanted) {
    return {
        .name = name,
        .meaning = meaning,
        .counts = {0, 1},
        .take = [this, wanted](Orvel::World& /*world*/, OscNumbers n) -> OscExpected {
            return isRelease(n) || !subscribe_ ? nullptr : subscribe_(wanted);
        }};
}

} // namespace Show
