#include <Show/osc/AdmPaths.h>

#include <Show/scene/ObjectNames.h>
#include <Show/scene/YawPitchRoll.h>

#include <Orvel/Backend.h>
#include <Orvel/SceneEdits.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

namespace Show {

namespace {

constexpr float kNear = 1e-4F;
constexpr float kSmallestUnit = 1e-6F; // of `dmax`, in scene units

constexpr std::array kCoordinates{OscRange{-1.0F, 1.0F}};
constexpr std::array kAngles{OscRange{-180.0F, 180.0F}};
constexpr std::array kElevations{OscRange{-90.0F, 90.0F}};
constexpr std::array kFractions{OscRange{0.0F, 1.0F}};
constexpr std::array kPolar{kAngles[0], kElevations[0], kFractions[0]};

float radians(float degrees) {
    return degrees * std::numbers::pi_v<float> / 180.0F;
}

float degrees(float radians) {
    return radians * 180.0F / std::numbers::pi_v<float>;
}

/// The text up to kMaxName characters, which are UTF-8.
std::string shortened(std::string text) {
    std::size_t characters = 0;
    const auto end = std::find_if(text.begin(), text.end(), [&](char c) {
        return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U &&
               ++characters > AdmPaths::kMaxName;
    });
    text.erase(end, text.end());
    return text;
}

float clamped(float number, OscRanges ranges) {
    return std::clamp(number, ranges[0].low, ranges[0].high);
}

template <class Do>
void forEachDisplay(const Orvel::World& world, Do function) {
    for (Orvel::Backend* backend : world.backends()) {
        if (auto* names = dynamic_cast<ObjectNames*>(backend)) {
            function(*names);
        }
    }
}

/// The coordinates of ADM-OSC in scene units, and back.
Orvel::Vec3f fromAdm(float x, float y, float z) {
    return {x, z, -y};
}
std::array<float, 3> toAdm(const Orvel::Vec3f& v) {
    return {v.x, -v.z, v.y};
}

} // namespace

AdmPaths::AdmPaths(const OscEdits& edits, float scale, Change change)
    : edits_(edits), scale_(scale), change_(std::move(change)), objectPaths_(objectPaths()),
      listenerPaths_{
          "/adm/lis/",
          {
              {.name = "xyz",
               .meaning = "Listener: right, ahead, up",
               .ranges = kCoordinates,
               .counts = {3},
               .take =
                   [this](Orvel::World& world, OscNumbers n) {
                       const auto at = [&](std::size_t i) {
                           return clamped(n[i], kCoordinates) * scale_;
                       };
                       Orvel::moveListener(
                           world, fromAdm(at(0), at(1), at(2)), world.listenerRotation(), edits_);
                       return nullptr;
                   },
               .read =
                   [this](Orvel::World& world) {
                       const auto place = toAdm(world.listenerPosition());
                       return OscValues::floats(
                           {place[0] / scale_, place[1] / scale_, place[2] / scale_});
                   },
               .sent = true},
              {.name = "ypr",
               .meaning = "Listener: yaw, pitch, roll in degrees",
               .ranges = kAngles,
               .counts = {3},
               .take =
                   [this](Orvel::World& world, OscNumbers n) {
                       const auto at = [&](std::size_t i) { return clamped(n[i], kAngles); };
                       Orvel::moveListener(
                           world, world.listenerPosition(), fromYawPitchRoll(at(0), at(1), at(2)),
                           edits_);
                       return nullptr;
                   },
               .read =
                   [](Orvel::World& world) {
                       const auto angles = toYawPitchRoll(world.listenerRotation());
                       return OscValues::floats({angles[0], angles[1], angles[2]});
                   },
               .sent = true},
          }},
      scenePaths_{
          "/adm/env/",
          {
              {.name = "change",
               .meaning = "A change of scene or programme; plays the cue of that name",
               .counts = {},
               .read = [this](Orvel::World& /*world*/) { return OscValues::ofText(lastChange_); },
               .sent = true,
               .write =
                   [this](Orvel::World& /*world*/, const std::string& name) {
                       changeTo(name);
                       return nullptr;
                   }},
          }} {}

OscFamily<Orvel::Emitter> AdmPaths::objectPaths() {
    using Emitter = Orvel::Emitter;
    return {
        "/adm/obj/",
        {
            placeEntry("xyz", "Position: right, ahead, up", 0, 3, true),
            placeEntry("xy", "Position: right, ahead", 0, 2),
            placeEntry("x", "Position: right", 0, 1),
            placeEntry("y", "Position: ahead", 1, 1),
            placeEntry("z", "Position: up", 2, 1),
            {.name = "aed",
             .meaning = "Azimuth to the left and elevation in degrees, distance",
             .ranges = kPolar,
             .counts = {3},
             .take =
                 [this](Emitter& emitter, OscNumbers n) {
                     setPolar(emitter, {n[0], n[1], std::min(n[2], 1.0F), {}});
                     return nullptr;
                 },
             .read =
                 [this](Emitter& emitter) {
                     const Polar polar = polarOf(emitter);
                     return OscValues::floats({polar.azimuth, polar.elevation, polar.distance});
                 }},
            polarEntry("azim", "Azimuth to the left, in degrees", kAngles, &Polar::azimuth),
            polarEntry("elev", "Elevation in degrees", kElevations, &Polar::elevation),
            polarEntry("dist", "Distance", kFractions, &Polar::distance),
            {.name = "w",
             .meaning = "Horizontal extent",
             .ranges = kFractions,
             .counts = {1},
             .take =
                 [this](Emitter& emitter, OscNumbers n) {
                     setWidth(emitter, clamped(n[0], kFractions));
                     show(emitter);
                     return nullptr;
                 },
             .read = [this](Emitter& emitter) { return OscValues::floats({widthOf(emitter)}); },
             .sent = true},
            {.name = "gain",
             .meaning = "Linear gain",
             .ranges = kOscFromZero,
             .counts = {1},
             .take =
                 [this](Emitter& emitter, OscNumbers n) {
                     setGain(emitter, std::max(n[0], 0.0F));
                     return nullptr;
                 },
             .read = [this](Emitter& emitter) { return readGain(emitter); },
             .sent = true},
            {.name = "dref",
             .meaning = "Distance of full level",
             .ranges = kFractions,
             .counts = {1},
             .take =
                 [this](Emitter& emitter, OscNumbers n) {
                     setReach(emitter, clamped(n[0], kFractions));
                     show(emitter);
                     return nullptr;
                 },
             .read = [this](Emitter& emitter) { return OscValues::floats({referenceOf(emitter)}); },
             .sent = true},
            {.name = "dmax",
             .meaning = "Scene units of the distance 1",
             .ranges = kOscFromZero,
             .counts = {1},
             .take =
                 [this](Emitter& emitter, OscNumbers n) {
                     setUnit(emitter, std::max(n[0], kSmallestUnit));
                     show(emitter);
                     return nullptr;
                 },
             .read = [this](Emitter& emitter) { return OscValues::floats({unitOf(emitter)}); },
             .sent = true},
            {.name = "mute",
             .meaning = "Silent",
             .ranges = kFractions,
             .counts = {1},
             .take =
                 [this](Emitter& emitter, OscNumbers n) {
                     setMute(emitter, n[0] != 0.0F);
                     return nullptr;
                 },
             .read = [this](Emitter& emitter) { return OscValues::whole(muted(emitter) ? 1 : 0); },
             .sent = true},
            {.name = "name",
             .meaning = "Name of the object",
             .counts = {},
             .read =
                 [this](Emitter& emitter) {
                     const Object* object = find(emitter.id());
                     return OscValues::ofText(object == nullptr ? "" : object->name);
                 },
             .sent = true,
             .write =
                 [this](Emitter& emitter, const std::string& name) {
                     objects_[emitter.id()].name = shortened(name);
                     show(emitter);
                     return nullptr;
                 }},
        }};
}

OscEntry<Orvel::Emitter> AdmPaths::placeEntry(
    const char* name, const char* meaning, std::size_t first, std::size_t count, bool sent) {
    return {
        .name = name,
        .meaning = meaning,
        .ranges = kCoordinates,
        .counts = {count},
        .take =
            [this, first](Orvel::Emitter& emitter, OscNumbers n) {
                const float unit = unitOf(emitter);
                std::array<float, 3> place = toAdm(emitter.position());
                for (std::size_t i = 0; i < n.size(); ++i) {
                    place[first + i] = clamped(n[i], kCoordinates) * unit;
                }
                edits_.move(emitter, fromAdm(place[0], place[1], place[2]));
                return nullptr;
            },
        .read =
            [this, first, count](Orvel::Emitter& emitter) {
                const std::array<float, 3> place = toAdm(emitter.position());
                OscValues values;
                values.count = count;
                for (std::size_t i = 0; i < count; ++i) {
                    values.numbers[i] = place[first + i] / unitOf(emitter);
                }
                return values;
            },
        .sent = sent};
}

OscEntry<Orvel::Emitter> AdmPaths::polarEntry(
    const char* name, const char* meaning, OscRanges ranges, float Polar::*member) {
    return {
        .name = name,
        .meaning = meaning,
        .ranges = ranges,
        .counts = {1},
        .take =
            [this, member](Orvel::Emitter& emitter, OscNumbers n) {
                Polar polar = polarOf(emitter);
                polar.*member = member == &Polar::distance ? std::min(n[0], 1.0F) : n[0];
                setPolar(emitter, polar);
                return nullptr;
            },
        .read =
            [this, member](Orvel::Emitter& emitter) {
                return OscValues::floats({polarOf(emitter).*member});
            }};
}

std::string AdmPaths::appear(int id) {
    Orvel::World& world = edits_.world();
    if (appeared_.size() >= kMaxAppeared) {
        std::erase_if(
            appeared_, [&world](int former) { return world.getEmitter(former) == nullptr; });
    }
    if (appeared_.size() >= kMaxAppeared) {
        return "there is no emitter " + std::to_string(id) + ", and " +
               std::to_string(kMaxAppeared) + " have appeared already";
    }
    edits_.create(id, {});
    if (Orvel::Emitter* emitter = world.getEmitter(id)) {
        appeared_.insert(id);
        setReach(*emitter, 1.0F);
        if (Orvel::Source* source = world.getSource(id)) {
            Orvel::reconnect(*emitter, source, edits_);
        }
    }
    return {};
}

void AdmPaths::forget(int id) {
    objects_.erase(id);
    forEachDisplay(edits_.world(), [id](ObjectNames& names) { names.removeObject(id); });
}

void AdmPaths::show(const Orvel::Emitter& emitter) const {
    const Object* object = find(emitter.id());
    forEachDisplay(edits_.world(), [&](ObjectNames& names) {
        names.setObject(
            emitter.id(), object == nullptr ? std::string() : object->name, unitOf(emitter));
    });
}

const AdmPaths::Object* AdmPaths::find(int id) const {
    const auto object = objects_.find(id);
    return object == objects_.end() ? nullptr : &object->second;
}

void AdmPaths::setPolar(Orvel::Emitter& emitter, Polar polar) {
    polar.azimuth = clamped(polar.azimuth, kAngles);
    polar.elevation = clamped(polar.elevation, kElevations);
    polar.distance = std::max(polar.distance, 0.0F);
    // From the front to the left, and from the horizon upwards.
    const float azimuth = radians(polar.azimuth);
    const float elevation = radians(polar.elevation);
    const float length = polar.distance * unitOf(emitter);
    polar.place = fromAdm(
        -std::sin(azimuth) * std::cos(elevation) * length,
        std::cos(azimuth) * std::cos(elevation) * length, std::sin(elevation) * length);
    objects_[emitter.id()].polar = polar;
    edits_.move(emitter, polar.place);
}

AdmPaths::Polar AdmPaths::polarOf(const Orvel::Emitter& emitter) const {
    const Orvel::Vec3f& now = emitter.position();
    const Object* object = find(emitter.id());
    // The values are remembered, because a distance of 0 has no direction.
    if (object != nullptr && object->polar && std::abs(object->polar->place.x - now.x) < kNear &&
        std::abs(object->polar->place.y - now.y) < kNear &&
        std::abs(object->polar->place.z - now.z) < kNear) {
        return *object->polar;
    }
    const float flat = std::hypot(now.x, now.z);
    Polar polar;
    polar.azimuth = flat > 0.0F ? degrees(std::atan2(-now.x, -now.z)) : 0.0F;
    polar.elevation = degrees(std::atan2(now.y, flat));
    polar.distance = std::hypot(flat, now.y) / unitOf(emitter);
    return polar;
}

float AdmPaths::unitOf(const Orvel::Emitter& emitter) const {
    const Object* object = find(emitter.id());
    return object == nullptr ? scale_ : object->unit.value_or(scale_);
}

void AdmPaths::setUnit(Orvel::Emitter& emitter, float unit) {
    const float before = unitOf(emitter);
    const float reference = referenceOf(emitter);
    const float width = widthOf(emitter);
    const Polar polar = polarOf(emitter);
    const bool placed = find(emitter.id()) != nullptr && objects_[emitter.id()].polar;
    objects_[emitter.id()].unit = unit;
    // The normalised position stays.
    if (placed) {
        setPolar(emitter, polar);
    } else {
        const Orvel::Vec3f& place = emitter.position();
        const float factor = unit / before;
        edits_.move(emitter, {place.x * factor, place.y * factor, place.z * factor});
    }
    setReach(emitter, reference);
    setWidth(emitter, width);
}

void AdmPaths::setWidth(Orvel::Emitter& emitter, float width) {
    if (const float radius = width * unitOf(emitter); radius != emitter.radius()) {
        emitter.setRadius(radius);
    }
}

float AdmPaths::widthOf(const Orvel::Emitter& emitter) const {
    return emitter.radius() / unitOf(emitter);
}

void AdmPaths::setReach(Orvel::Emitter& emitter, float reference) {
    const float outer = unitOf(emitter);
    const float inner = reference * outer;
    edits_.setHull(emitter, {outer, outer, inner, inner});
}

float AdmPaths::referenceOf(const Orvel::Emitter& emitter) const {
    const float inner = (emitter.minBack() + emitter.minFront()) * 0.5F;
    return std::clamp(inner / unitOf(emitter), 0.0F, 1.0F);
}

bool AdmPaths::muted(const Orvel::Emitter& emitter) const {
    const Object* object = find(emitter.id());
    return emitter.gain() == 0.0F && object != nullptr && object->gain;
}

void AdmPaths::setGain(Orvel::Emitter& emitter, float gain, GainFades::Clock::duration over) {
    fades_.remove(emitter.id());
    if (muted(emitter)) {
        objects_[emitter.id()].gain = gain;
    } else if (over > over.zero()) {
        fades_.add(emitter, gain, over);
    } else {
        edits_.setGain(emitter, gain);
    }
}

OscValues AdmPaths::readGain(Orvel::Emitter& emitter) const {
    return OscValues::floats({muted(emitter) ? *find(emitter.id())->gain : emitter.gain()});
}

void AdmPaths::setMute(Orvel::Emitter& emitter, bool mute) {
    if (muted(emitter) == mute) {
        return;
    }
    std::optional<float>& former = objects_[emitter.id()].gain;
    if (mute) {
        former = fades_.goal(emitter);
        fades_.remove(emitter.id());
        edits_.setGain(emitter, 0.0F);
    } else {
        edits_.setGain(emitter, *former);
        former.reset();
    }
}

void AdmPaths::changeTo(const std::string& name) {
    lastChange_ = shortened(name);
    if (change_) {
        change_(lastChange_);
    }
}

} // namespace Show
