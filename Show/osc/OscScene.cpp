#include <Show/osc/OscScene.h>

#include <Show/scene/SceneFile.h>
#include <Show/scene/YawPitchRoll.h>

#include <Orvel/ClientBackend.h>
#include <Orvel/CreateEmitterEvent.h>
#include <Orvel/EmitterConnectionEvent.h>
#include <Orvel/EmitterHullEvent.h>
#include <Orvel/EmitterParamEvent.h>
#include <Orvel/SceneEdits.h>
#include <Orvel/SourceParamEvent.h>
#include <Orvel/TransformEvent.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>
#include <lo/lo.h>
#include <memory>
#include <numbers>
#include <type_traits>
#include <utility>

namespace Show {

namespace {

constexpr std::string_view kAll = "*"; // in place of an id
constexpr std::size_t kMaxArguments = 64;
/// The largest magnitude; beyond it, computed values may become infinite.
constexpr double kMaxNumber = 1e9;
constexpr float kNear = 1e-4F;

struct FreeMessage {
    void operator()(lo_message message) const { lo_message_free(message); }
};
using OwnMessage = std::unique_ptr<std::remove_pointer_t<lo_message>, FreeMessage>;

float radians(float degrees) {
    return degrees * std::numbers::pi_v<float> / 180.0F;
}

float degrees(float radians) {
    return radians * 180.0F / std::numbers::pi_v<float>;
}

/// Three numbers are yaw, pitch and roll in degrees, four a quaternion of any length but 0.
bool toRotation(OscScene::Numbers n, Orvel::Quaternion& rotation) {
    if (n.size() == 3) {
        rotation = fromYawPitchRoll(n[0], n[1], n[2]);
        return true;
    }
    const float length = std::hypot(std::hypot(n[0], n[1]), std::hypot(n[2], n[3]));
    if (length < kNear || !std::isfinite(length)) {
        return false;
    }
    rotation = {n[0] / length, n[1] / length, n[2] / length, n[3] / length};
    return true;
}
constexpr const char* kNoRotation = "expected a quaternion, found one of length 0";

/// Buttons send 1 when pressed and 0 when released.
bool letGo(OscScene::Numbers n) {
    return n.size() == 1 && n[0] == 0.0F;
}

std::string ascii(std::string_view text) {
    constexpr std::size_t kMax = 80;
    std::string result(text.substr(0, kMax));
    std::replace_if(
        result.begin(), result.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
    return result + (text.size() > kMax ? "..." : "");
}

std::vector<std::string_view> split(std::string_view path) {
    std::vector<std::string_view> words;
    while (!path.empty()) {
        path.remove_prefix(1); // a slash
        const auto end = std::min(path.find('/'), path.size());
        words.push_back(path.substr(0, end));
        path.remove_prefix(end);
    }
    return words;
}

bool toId(std::string_view word, int& id) {
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), id);
    return error == std::errc() && end == word.data() + word.size() && id > 0 && id <= kMaxId;
}

constexpr const char* kUnknownPath = "unknown path";

} // namespace

const std::vector<OscScene::Entry<Orvel::Emitter>> OscScene::_admPaths{
    {"xyz", 3, &OscScene::admXyz},
    {"x", 1, &OscScene::admAxis<0>},
    {"y", 1, &OscScene::admAxis<1>},
    {"z", 1, &OscScene::admAxis<2>},
    {"aed", 3, &OscScene::admAed},
    {"azim", 1, &OscScene::admPolar<&Polar::azimuth>},
    {"elev", 1, &OscScene::admPolar<&Polar::elevation>},
    {"dist", 1, &OscScene::admPolar<&Polar::distance>},
    {"gain", 1, &OscScene::gain},
    {"mute", 1, &OscScene::admMute},
};
const std::vector<OscScene::Entry<Orvel::Emitter>> OscScene::_emitterPaths{
    {"position", 3, &OscScene::position},
    {"orientation", 4, &OscScene::orientation},
    {"orientation", 3, &OscScene::orientation},
    {"gain", 1, &OscScene::gain},
    {"value", 1, &OscScene::value},
    {"hull", 4, &OscScene::hull},
    {"source", 1, &OscScene::source},
    {"play", 0, &OscScene::setState<State::PLAY>},
    {"play", 1, &OscScene::setState<State::PLAY>},
    {"pause", 0, &OscScene::setState<State::PAUSE>},
    {"pause", 1, &OscScene::setState<State::PAUSE>},
    {"stop", 0, &OscScene::setState<State::STOP>},
    {"stop", 1, &OscScene::setState<State::STOP>},
    {"destroy", 0, &OscScene::destroy},
    {"destroy", 1, &OscScene::destroy},
};
const std::vector<OscScene::Entry<Orvel::Source>> OscScene::_sourcePaths{
    {"pitch", 1, &OscScene::pitch},
    {"loop", 1, &OscScene::loop},
    {"play", 0, &OscScene::setState<State::PLAY>},
    {"play", 1, &OscScene::setState<State::PLAY>},
    {"pause", 0, &OscScene::setState<State::PAUSE>},
    {"pause", 1, &OscScene::setState<State::PAUSE>},
    {"stop", 0, &OscScene::setState<State::STOP>},
    {"stop", 1, &OscScene::setState<State::STOP>},
};
const std::vector<OscScene::Entry<Orvel::World>> OscScene::_admListenerPaths{
    {"xyz", 3, &OscScene::admListenerXyz},
    {"ypr", 3, &OscScene::listenerOrientation},
};
const std::vector<OscScene::Entry<Orvel::World>> OscScene::_listenerPaths{
    {"position", 3, &OscScene::listenerPosition},
    {"orientation", 4, &OscScene::listenerOrientation},
    {"orientation", 3, &OscScene::listenerOrientation},
};
const std::vector<OscScene::Entry<Orvel::World>> OscScene::_worldPaths{
    {"enabled", 1, &OscScene::enabled},
};

OscScene::OscScene(Orvel::World& world, float scale, Apply apply)
    : world_(world), scale_(scale), apply_(std::move(apply)) {}

std::string OscScene::take(std::span<const std::byte> bytes) {
    // The library modifies the bytes that it parses.
    std::vector<std::byte> copy(bytes.begin(), bytes.end());
    const auto pathEnd = std::find(copy.begin(), copy.end(), std::byte{0});
    const std::string_view path(
        reinterpret_cast<const char*>(copy.data()),
        static_cast<std::size_t>(pathEnd - copy.begin()));
    if (path.empty() || path.front() != '/' || pathEnd == copy.end()) {
        return "not a message of Open Sound Control";
    }
    const std::string begin = ascii(path) + ": ";
    int fault = 0;
    const OwnMessage read(lo_message_deserialise(copy.data(), copy.size(), &fault));
    if (read == nullptr) {
        return begin + "its arguments are malformed";
    }
    Message message;
    message.words = split(path);
    const char* types = lo_message_get_types(read.get());
    lo_arg** arguments = lo_message_get_argv(read.get());
    const auto count = static_cast<std::size_t>(lo_message_get_argc(read.get()));
    if (count > kMaxArguments) {
        return begin + "has " + std::to_string(count) + " arguments";
    }
    for (std::size_t i = 0; i < count; ++i) {
        const auto type = static_cast<lo_type>(types[i]);
        if (type == LO_TRUE || type == LO_FALSE) {
            message.numbers.push_back(type == LO_TRUE ? 1.0F : 0.0F);
        } else if (lo_is_numerical_type(type) != 0) {
            const auto number = static_cast<double>(lo_hires_val(type, arguments[i]));
            if (!(std::abs(number) <= kMaxNumber)) {
                return begin + "expected numbers from -1e9 to 1e9, found another value";
            }
            message.numbers.push_back(static_cast<float>(number));
        } else if (type == LO_STRING || type == LO_SYMBOL) {
            // A text starts at the argument itself, which is no valid address of a whole lo_arg.
            message.texts.emplace_back(reinterpret_cast<const char*>(arguments[i]));
        } else {
            return begin + "expected numbers, found an argument of type '" +
                   ascii(std::string_view(types + i, 1)) + "'";
        }
    }
    const std::string wrong = dispatch(message);
    return wrong.empty() ? wrong : begin + wrong;
}

std::string OscScene::dispatch(const Message& message) {
    const auto& words = message.words;
    const auto is = [&](std::string_view first, std::string_view second, std::size_t count) {
        return words.size() == count && words[0] == first && (count == 2 || words[1] == second);
    };
    if (is("orvel", "emitter", 4) && words[3] == "create") {
        return create(message);
    }
    if (!message.texts.empty()) {
        return "expected numbers, found a text";
    }
    if (is("adm", "obj", 4)) {
        return dispatchToParts(_admPaths, world_.emitters(), "emitter", message);
    }
    if (is("orvel", "emitter", 4)) {
        return dispatchToParts(_emitterPaths, world_.emitters(), "emitter", message);
    }
    if (is("orvel", "source", 4)) {
        return dispatchToParts(_sourcePaths, world_.sources(), "source", message);
    }
    if (is("adm", "lis", 3)) {
        return dispatch(_admListenerPaths, words[2], world_, message.numbers);
    }
    if (is("orvel", "listener", 3)) {
        return dispatch(_listenerPaths, words[2], world_, message.numbers);
    }
    if (is("orvel", "", 2)) {
        return dispatch(_worldPaths, words[1], world_, message.numbers);
    }
    return kUnknownPath;
}

template <class Part>
std::string OscScene::dispatch(
    const std::vector<Entry<Part>>& paths, std::string_view name, Part& part, Numbers numbers) {
    std::string expected;
    for (const Entry<Part>& entry : paths) {
        if (entry.name == name && entry.numbers == numbers.size()) {
            const Expected fault = (this->*entry.take)(part, numbers);
            return fault == nullptr ? "" : fault;
        }
        if (entry.name == name) {
            expected += (expected.empty() ? "" : " or ") + std::to_string(entry.numbers);
        }
    }
    return expected.empty() ? kUnknownPath
                            : "expected " + expected + (expected == "1" ? " number" : " numbers") +
                                  ", found " + std::to_string(numbers.size());
}

template <class Part>
std::string OscScene::dispatchToParts(
    const std::vector<Entry<Part>>& paths, const std::map<int, Part*>& parts, const char* kind,
    const Message& message) {
    const auto& words = message.words;
    if (words[2] == kAll) {
        std::vector<Part*> all; // messages create and destroy some
        std::transform(parts.begin(), parts.end(), std::back_inserter(all), [](const auto& entry) {
            return entry.second;
        });
        for (Part* part : all) {
            if (std::string wrong = dispatch(paths, words[3], *part, message.numbers);
                !wrong.empty()) {
                return wrong;
            }
        }
        return {};
    }
    int id = 0;
    if (!toId(words[2], id)) {
        return kUnknownPath;
    }
    const auto part = parts.find(id);
    if (part == parts.end()) {
        return std::string("there is no ") + kind + " " + std::to_string(id);
    }
    return dispatch(paths, words[3], *part->second, message.numbers);
}

std::string OscScene::create(const Message& message) {
    int id = 0;
    if (!toId(message.words[2], id)) {
        return kUnknownPath;
    }
    if (!message.numbers.empty()) {
        return "expected labels as texts, found a number";
    }
    if (world_.getEmitter(id) != nullptr) {
        return "there is an emitter " + std::to_string(id) + " already";
    }
    Orvel::CreateEmitterEvent event;
    event.address(Orvel::CmdCreateEmitter, id);
    event.labels = message.texts;
    apply_(event);
    return {};
}

void OscScene::send(short command, int id) {
    Orvel::CommandEvent event;
    event.address(static_cast<Orvel::Command>(command), id);
    apply_(event);
}

void OscScene::move(Orvel::Emitter& emitter, const Orvel::Vec3f& place) {
    Orvel::TransformEvent event;
    event.address(Orvel::CmdSetEmitterTransform, emitter.id());
    event.position = place;
    event.rotation = emitter.rotation();
    apply_(event);
}

void OscScene::rotate(Orvel::Emitter& emitter, const Orvel::Quaternion& rotation) {
    Orvel::TransformEvent event;
    event.address(Orvel::CmdSetEmitterTransform, emitter.id());
    event.position = emitter.position();
    event.rotation = rotation;
    apply_(event);
}

/// The steps of an edit as events, which are recorded and can be refused as any other.
struct OscScene::EventSteps {
    OscScene& scene;

    void setSource(const Orvel::Emitter& emitter, const Orvel::Source* source) const {
        Orvel::EmitterConnectionEvent event;
        event.address(Orvel::CmdSetEmitterConnection, emitter.id());
        event.sourceId = static_cast<short>(source == nullptr ? 0 : source->id());
        scene.apply_(event);
    }
    void setState(const Orvel::Emitter& emitter, State state) const {
        scene.send(Orvel::ClientBackend::emitterState2Command(state), emitter.id());
    }
    void setState(const Orvel::Source& source, State state) const {
        scene.send(Orvel::ClientBackend::sourceState2Command(state), source.id());
    }
    void setEnabled(const Orvel::World& /*world*/, bool enabled) const {
        scene.send(enabled ? Orvel::CmdEnable : Orvel::CmdDisable, 0);
    }
    void setListenerTransform(
        const Orvel::World& /*world*/, const Orvel::Vec3f& place,
        const Orvel::Quaternion& rotation) const {
        Orvel::TransformEvent event;
        event.address(Orvel::CmdSetListenerTransform, 0);
        event.position = place;
        event.rotation = rotation;
        scene.apply_(event);
    }
};

template <OscScene::State state, class Part>
OscScene::Expected OscScene::setState(Part& part, Numbers n) {
    if (!letGo(n) && state == State::PLAY) {
        restart(part, EventSteps{*this});
    } else if (!letGo(n)) {
        EventSteps{*this}.setState(part, state);
    }
    return nullptr;
}

Orvel::Vec3f OscScene::fromAdm(float x, float y, float z) const {
    return {x * scale_, z * scale_, -y * scale_};
}

OscScene::Expected OscScene::admXyz(Orvel::Emitter& emitter, Numbers n) {
    move(emitter, fromAdm(n[0], n[1], n[2]));
    return nullptr;
}

template <std::size_t axis>
OscScene::Expected OscScene::admAxis(Orvel::Emitter& emitter, Numbers n) {
    Orvel::Vec3f place = emitter.position();
    if (axis == 0) {
        place.x = n[0] * scale_;
    } else if (axis == 1) {
        place.z = -n[0] * scale_;
    } else {
        place.y = n[0] * scale_;
    }
    move(emitter, place);
    return nullptr;
}

void OscScene::setPolar(Orvel::Emitter& emitter, Polar polar) {
    // From the front to the left, and from the horizon upwards.
    const float azimuth = radians(polar.azimuth);
    const float elevation = radians(polar.elevation);
    polar.place = fromAdm(
        -std::sin(azimuth) * std::cos(elevation) * polar.distance,
        std::cos(azimuth) * std::cos(elevation) * polar.distance,
        std::sin(elevation) * polar.distance);
    polar_[emitter.id()] = polar;
    move(emitter, polar.place);
}

OscScene::Expected OscScene::admAed(Orvel::Emitter& emitter, Numbers n) {
    if (n[2] < 0.0F) {
        return "expected a distance of at least 0";
    }
    setPolar(emitter, {n[0], n[1], n[2], {}});
    return nullptr;
}

template <float OscScene::Polar::*member>
OscScene::Expected OscScene::admPolar(Orvel::Emitter& emitter, Numbers n) {
    if (member == &Polar::distance && n[0] < 0.0F) {
        return "expected a distance of at least 0";
    }
    const Orvel::Vec3f& now = emitter.position();
    Polar polar;
    const auto last = polar_.find(emitter.id());
    // The values are remembered, because a distance of 0 has no direction.
    if (last != polar_.end() && std::abs(last->second.place.x - now.x) < kNear &&
        std::abs(last->second.place.y - now.y) < kNear &&
        std::abs(last->second.place.z - now.z) < kNear) {
        polar = last->second;
    } else {
        const float flat = std::hypot(now.x, now.z);
        polar.azimuth = degrees(std::atan2(-now.x, -now.z));
        polar.elevation = degrees(std::atan2(now.y, flat));
        polar.distance = std::hypot(flat, now.y) / scale_;
    }
    polar.*member = n[0];
    setPolar(emitter, polar);
    return nullptr;
}

void OscScene::setGain(Orvel::Emitter& emitter, float gain) {
    Orvel::EmitterParamEvent event;
    event.address(Orvel::CmdSetEmitterParam, emitter.id());
    event.setParam(emitter.paramFlag(), emitter.paramValue(), gain);
    apply_(event);
}

bool OscScene::muted(const Orvel::Emitter& emitter) const {
    return emitter.gain() == 0.0F && gains_.contains(emitter.id());
}

OscScene::Expected OscScene::gain(Orvel::Emitter& emitter, Numbers n) {
    if (n[0] < 0.0F) {
        return "expected a gain of at least 0";
    }
    if (muted(emitter)) {
        gains_[emitter.id()] = n[0];
    } else {
        setGain(emitter, n[0]);
    }
    return nullptr;
}

OscScene::Expected OscScene::admMute(Orvel::Emitter& emitter, Numbers n) {
    if (muted(emitter) == (n[0] != 0.0F)) {
        return nullptr;
    }
    if (n[0] != 0.0F) {
        gains_[emitter.id()] = emitter.gain();
        setGain(emitter, 0.0F);
    } else {
        setGain(emitter, gains_[emitter.id()]);
        gains_.erase(emitter.id());
    }
    return nullptr;
}

OscScene::Expected OscScene::admListenerXyz(Orvel::World& world, Numbers n) {
    moveListener(world, fromAdm(n[0], n[1], n[2]), world.listenerRotation(), EventSteps{*this});
    return nullptr;
}

OscScene::Expected OscScene::position(Orvel::Emitter& emitter, Numbers n) {
    move(emitter, {n[0], n[1], n[2]});
    return nullptr;
}

OscScene::Expected OscScene::orientation(Orvel::Emitter& emitter, Numbers n) {
    Orvel::Quaternion rotation;
    if (!toRotation(n, rotation)) {
        return kNoRotation;
    }
    rotate(emitter, rotation);
    return nullptr;
}

OscScene::Expected OscScene::value(Orvel::Emitter& emitter, Numbers n) {
    Orvel::EmitterParamEvent event;
    event.address(Orvel::CmdSetEmitterParam, emitter.id());
    event.setParam(emitter.paramFlag(), n[0], emitter.gain());
    apply_(event);
    return nullptr;
}

OscScene::Expected OscScene::hull(Orvel::Emitter& emitter, Numbers n) {
    if (std::any_of(n.begin(), n.end(), [](float extent) { return extent < 0.0F; })) {
        return "expected extents of at least 0";
    }
    Orvel::EmitterHullEvent event;
    event.address(Orvel::CmdSetEmitterHull, emitter.id());
    event.setHull(n[0], n[1], n[2], n[3]);
    apply_(event);
    return nullptr;
}

OscScene::Expected OscScene::source(Orvel::Emitter& emitter, Numbers n) {
    const auto id = n[0] >= 0.0F && n[0] <= static_cast<float>(kMaxId) ? static_cast<int>(n[0]) : 0;
    Orvel::Source* source = world_.getSource(id);
    if (static_cast<float>(id) != n[0] || (id != 0 && source == nullptr)) {
        return "expected the id of a source, or 0";
    }
    reconnect(emitter, source, EventSteps{*this});
    return nullptr;
}

OscScene::Expected OscScene::destroy(Orvel::Emitter& emitter, Numbers n) {
    if (!letGo(n)) {
        polar_.erase(emitter.id());
        gains_.erase(emitter.id());
        send(Orvel::CmdDestroyEmitter, emitter.id());
    }
    return nullptr;
}

OscScene::Expected OscScene::pitch(Orvel::Source& source, Numbers n) {
    if (n[0] <= 0.0F) {
        return "expected a pitch above 0";
    }
    Orvel::SourceParamEvent event;
    event.address(Orvel::CmdSetSourceParam, source.id());
    event.pitch = n[0];
    event.loop = source.loop();
    apply_(event);
    return nullptr;
}

OscScene::Expected OscScene::loop(Orvel::Source& source, Numbers n) {
    Orvel::SourceParamEvent event;
    event.address(Orvel::CmdSetSourceParam, source.id());
    event.pitch = source.pitch();
    event.loop = n[0] != 0.0F;
    apply_(event);
    return nullptr;
}

OscScene::Expected OscScene::listenerPosition(Orvel::World& world, Numbers n) {
    moveListener(world, {n[0], n[1], n[2]}, world.listenerRotation(), EventSteps{*this});
    return nullptr;
}

OscScene::Expected OscScene::listenerOrientation(Orvel::World& world, Numbers n) {
    Orvel::Quaternion rotation;
    if (!toRotation(n, rotation)) {
        return kNoRotation;
    }
    moveListener(world, world.listenerPosition(), rotation, EventSteps{*this});
    return nullptr;
}

OscScene::Expected OscScene::enabled(Orvel::World& world, Numbers n) {
    EventSteps{*this}.setEnabled(world, n[0] != 0.0F);
    return nullptr;
}

} // namespace Show
