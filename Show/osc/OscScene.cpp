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
#include <array>
#include <charconv>
#include <cmath>
#include <initializer_list>
#include <lo/lo.h>
#include <memory>
#include <numbers>
#include <type_traits>
#include <utility>

namespace Show {

namespace {

constexpr std::size_t kMaxArguments = 64;
/// The largest magnitude; beyond it, computed values may become infinite.
constexpr double kMaxNumber = 1e9;
constexpr float kNear = 1e-4F;
constexpr float kSmallestUnit = 1e-6F; // of `dmax`, in scene units

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

// The families of paths in keys.
constexpr std::uint64_t kAdmFamily = 0;
constexpr std::uint64_t kEmitterFamily = 1;
constexpr std::uint64_t kSourceFamily = 2;
constexpr std::uint64_t kWorldFamilies = 3;

constexpr const char* kUnknownPath = "unknown path";

bool isPattern(std::string_view word) {
    return word.find_first_of("*?[{") != std::string_view::npos;
}

bool fits(std::string_view word, const std::string& name) {
    return word == name ||
           (isPattern(word) && lo_pattern_match(name.c_str(), std::string(word).c_str()) != 0);
}

/// Whether the words begin with those of a prefix, and have `more` after them.
bool fits(const std::vector<std::string_view>& words, std::string_view prefix, std::size_t more) {
    const auto count = static_cast<std::size_t>(std::count(prefix.begin(), prefix.end(), '/')) - 1;
    if (words.size() != count + more) {
        return false;
    }
    for (std::size_t i = 0; i < count; ++i) {
        prefix.remove_prefix(1); // a slash
        const std::string_view name = prefix.substr(0, prefix.find('/'));
        if (words[i] != name && !fits(words[i], std::string(name))) {
            return false;
        }
        prefix.remove_prefix(name.size());
    }
    return true;
}

/// `id`: 0 if the path has none.
std::string fullPath(std::string_view prefix, int id, std::string_view name) {
    return std::string(prefix) + (id == 0 ? "" : std::to_string(id) + "/") + std::string(name);
}

/// The text up to kMaxName characters, which are UTF-8.
std::string shortened(std::string text) {
    std::size_t characters = 0;
    const auto end = std::find_if(text.begin(), text.end(), [&](char c) {
        return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U &&
               ++characters > OscScene::kMaxName;
    });
    text.erase(end, text.end());
    return text;
}

/// A normalised coordinate.
float coordinate(float number) {
    return std::clamp(number, -1.0F, 1.0F);
}

OscValues floats(std::initializer_list<float> numbers) {
    OscValues values;
    values.count = numbers.size();
    std::copy(numbers.begin(), numbers.end(), values.numbers.begin());
    return values;
}

OscValues whole(int number) {
    OscValues values = floats({static_cast<float>(number)});
    values.type = 'i';
    return values;
}

OscValues text(std::string text) {
    OscValues values;
    values.type = 's';
    values.text = std::move(text);
    return values;
}

OscValues floats(const Orvel::Vec3f& v) {
    return floats({v.x, v.y, v.z});
}

OscValues floats(const Orvel::Quaternion& q) {
    return floats({q.x, q.y, q.z, q.w});
}

/// The coordinates of ADM-OSC in scene units, and back.
Orvel::Vec3f fromAdm(float x, float y, float z) {
    return {x, z, -y};
}
std::array<float, 3> toAdm(const Orvel::Vec3f& v) {
    return {v.x, -v.z, v.y};
}

} // namespace

const OscScene::Family<Orvel::Emitter> OscScene::_adm{
    "/adm/obj/",
    {
        {"xyz", 3, &OscScene::admPlace<0, 3>, &OscScene::readPlace<0, 3>, true},
        {"xy", 2, &OscScene::admPlace<0, 2>, &OscScene::readPlace<0, 2>},
        {"x", 1, &OscScene::admPlace<0, 1>, &OscScene::readPlace<0, 1>},
        {"y", 1, &OscScene::admPlace<1, 1>, &OscScene::readPlace<1, 1>},
        {"z", 1, &OscScene::admPlace<2, 1>, &OscScene::readPlace<2, 1>},
        {"aed", 3, &OscScene::admAed, &OscScene::readAed},
        {"azim", 1, &OscScene::admPolar<&Polar::azimuth>, &OscScene::readPolar<&Polar::azimuth>},
        {"elev", 1, &OscScene::admPolar<&Polar::elevation>,
         &OscScene::readPolar<&Polar::elevation>},
        {"dist", 1, &OscScene::admPolar<&Polar::distance>, &OscScene::readPolar<&Polar::distance>},
        {"w", 1, &OscScene::admWidth, &OscScene::readWidth, true},
        {"gain", 1, &OscScene::admGain, &OscScene::readGain, true},
        {"dref", 1, &OscScene::admReference, &OscScene::readReference, true},
        {"dmax", 1, &OscScene::admUnit, &OscScene::readUnit, true},
        {"mute", 1, &OscScene::admMute, &OscScene::readMute, true},
        {"name", 0, nullptr, &OscScene::readName, true, &OscScene::setName},
    }};
const OscScene::Family<Orvel::Emitter> OscScene::_emitter{
    "/orvel/emitter/",
    {
        {"position", 3, &OscScene::position, &OscScene::readPosition},
        {"orientation", 4, &OscScene::orientation, &OscScene::readOrientation, true},
        {"orientation", 3, &OscScene::orientation, &OscScene::readOrientation},
        {"gain", 1, &OscScene::gain, &OscScene::readGain},
        {"value", 1, &OscScene::value, &OscScene::readValue, true},
        {"hull", 4, &OscScene::hull, &OscScene::readHull, true},
        {"source", 1, &OscScene::source, &OscScene::readSource, true},
        {"play", 0, &OscScene::setState<State::PLAY>},
        {"play", 1, &OscScene::setState<State::PLAY>},
        {"pause", 0, &OscScene::setState<State::PAUSE>},
        {"pause", 1, &OscScene::setState<State::PAUSE>},
        {"stop", 0, &OscScene::setState<State::STOP>},
        {"stop", 1, &OscScene::setState<State::STOP>},
        {"destroy", 0, &OscScene::destroy},
        {"destroy", 1, &OscScene::destroy},
    }};
const OscScene::Family<Orvel::Source> OscScene::_source{
    "/orvel/source/",
    {
        {"pitch", 1, &OscScene::pitch, &OscScene::readPitch, true},
        {"loop", 1, &OscScene::loop, &OscScene::readLoop, true},
        {"play", 0, &OscScene::setState<State::PLAY>},
        {"play", 1, &OscScene::setState<State::PLAY>},
        {"pause", 0, &OscScene::setState<State::PAUSE>},
        {"pause", 1, &OscScene::setState<State::PAUSE>},
        {"stop", 0, &OscScene::setState<State::STOP>},
        {"stop", 1, &OscScene::setState<State::STOP>},
    }};
const OscScene::Family<Orvel::World> OscScene::_admListener{
    "/adm/lis/",
    {
        {"xyz", 3, &OscScene::admListenerXyz, &OscScene::readAdmListener, true},
        {"ypr", 3, &OscScene::admListenerYpr, &OscScene::readAngles, true},
    }};
const OscScene::Family<Orvel::World> OscScene::_admScene{
    "/adm/env/",
    {
        {"change", 0, nullptr, &OscScene::readChange, true, &OscScene::changeTo},
    }};
const OscScene::Family<Orvel::World> OscScene::_listener{
    "/orvel/listener/",
    {
        {"position", 3, &OscScene::listenerPosition, &OscScene::readListenerPosition},
        {"orientation", 4, &OscScene::listenerOrientation, &OscScene::readListenerOrientation},
        {"orientation", 3, &OscScene::listenerOrientation, &OscScene::readListenerOrientation},
    }};
const OscScene::Family<Orvel::World> OscScene::_world{
    "/orvel/",
    {
        {"enabled", 1, &OscScene::enabled, &OscScene::readEnabled, true},
        {"subscribe", 0, &OscScene::subscribe<true>},
        {"subscribe", 1, &OscScene::subscribe<true>},
        {"unsubscribe", 0, &OscScene::subscribe<false>},
        {"unsubscribe", 1, &OscScene::subscribe<false>},
    }};

OscScene::OscScene(Orvel::World& world, float scale, Apply apply, Change change)
    : world_(world), scale_(scale), apply_(std::move(apply)), change_(std::move(change)) {}

std::string OscScene::take(std::span<const std::byte> bytes, std::vector<OscAnswer>& answers) {
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
    message.answers = &answers;
    const bool clamps = message.words.front() == "adm";
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
            auto number = static_cast<double>(lo_hires_val(type, arguments[i]));
            if (clamps && !std::isnan(number)) {
                number = std::clamp(number, -kMaxNumber, kMaxNumber);
            }
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

std::string OscScene::dispatch(const Message& message) {
    const auto& words = message.words;
    if (fits(words, _emitter.prefix, 2) && words.back() == "create") {
        return create(message);
    }
    const std::size_t before = message.answers->size();
    Outcome outcome;
    takeParts(_adm, world_.emitters(), "emitter", message, outcome);
    takeParts(_emitter, world_.emitters(), "emitter", message, outcome);
    takeParts(_source, world_.sources(), "source", message, outcome);
    for (const auto* family : {&_admListener, &_admScene, &_listener, &_world}) {
        takeWorld(*family, message, outcome);
    }
    if (message.answers->size() - before > kMaxAnswers) {
        message.answers->resize(before + kMaxAnswers);
        return "has more than " + std::to_string(kMaxAnswers) +
               " answers; query fewer values at a time";
    }
    return outcome.taken ? "" : outcome.fault.empty() ? kUnknownPath : outcome.fault;
}

template <class Part>
OscScene::Outcome
OscScene::take(const Family<Part>& family, int id, Part& part, const Message& message) {
    const std::string_view name = message.words.back();
    const bool pattern = isPattern(name);
    Outcome outcome;
    std::string expected;
    const Entry<Part>* last = nullptr;
    for (const Entry<Part>& entry : family.entries) {
        // A pattern names no commands, since "destroy" is one.
        if (pattern ? entry.read == nullptr || !fits(name, std::string(entry.name))
                    : entry.name != name) {
            continue;
        }
        const bool repeats = last != nullptr && last->name == entry.name;
        last = &entry;
        if (entry.read != nullptr && message.isQuery()) {
            if (!repeats && message.answers->size() <= kMaxAnswers) {
                message.answers->push_back(
                    {fullPath(family.prefix, id, entry.name), (this->*entry.read)(part)});
            }
            outcome.taken = true;
        } else if (entry.write != nullptr) {
            if (message.texts.size() == 1 && message.numbers.empty()) {
                (this->*entry.write)(part, message.texts[0]);
                outcome.taken = true;
            }
            outcome.fault = "expected a text";
        } else if (!message.texts.empty()) {
            outcome.fault = "expected numbers, found a text";
        } else if (entry.numbers == message.numbers.size()) {
            const Expected fault = (this->*entry.take)(part, message.numbers);
            if (!pattern) { // the part may be gone
                return {fault == nullptr, fault == nullptr ? "" : fault};
            }
            outcome.taken = outcome.taken || fault == nullptr;
            outcome.fault = fault == nullptr ? "" : fault;
        } else {
            expected += (expected.empty() ? "" : " or ") + std::to_string(entry.numbers);
        }
    }
    if (outcome.fault.empty()) {
        outcome.fault = expected.empty()
                            ? kUnknownPath
                            : "expected " + expected + (expected == "1" ? " number" : " numbers") +
                                  ", found " + std::to_string(message.numbers.size());
    }
    return outcome;
}

template <class Part>
void OscScene::takeParts(
    const Family<Part>& family, const std::map<int, Part*>& parts, const char* kind,
    const Message& message, Outcome& outcome) {
    const auto& words = message.words;
    if (!fits(words, family.prefix, 2)) {
        return;
    }
    const std::string_view word = words[words.size() - 2];
    constexpr PartKind kKind =
        std::is_same_v<Part, Orvel::Emitter> ? PartKind::Emitter : PartKind::Source;
    const auto add = [&](int id, Part& part) {
        touch(kKind, id);
        Outcome one = take(family, id, part, message);
        outcome.taken = outcome.taken || one.taken;
        outcome.fault = std::move(one.fault);
    };
    if (isPattern(word)) {
        std::vector<std::pair<int, Part*>> all; // messages create and destroy some
        for (const auto& [id, part] : parts) {
            if (fits(word, std::to_string(id))) {
                all.emplace_back(id, part);
            }
        }
        outcome.taken = outcome.taken || parts.empty();
        if (all.empty() && !outcome.taken) {
            outcome.fault = std::string("there is no such ") + kind;
        }
        for (const auto& [id, part] : all) {
            add(id, *part);
        }
        return;
    }
    int id = 0;
    if (!toId(word, id)) {
        return;
    }
    auto part = parts.find(id);
    if constexpr (std::is_same_v<Part, Orvel::Emitter>) {
        if (part == parts.end() && &family == &_adm) {
            objects_.erase(id);
            outcome.fault = appear(id, message);
            part = parts.find(id);
        }
    }
    if (part != parts.end()) {
        add(id, *part->second);
    } else if (outcome.fault.empty()) {
        outcome.fault = std::string("there is no ") + kind + " " + std::to_string(id);
    }
}

void OscScene::takeWorld(
    const Family<Orvel::World>& family, const Message& message, Outcome& outcome) {
    if (fits(message.words, family.prefix, 1)) {
        touch(PartKind::World, 0);
        Outcome one = take(family, 0, world_, message);
        outcome.taken = outcome.taken || one.taken;
        outcome.fault = std::move(one.fault);
    }
}

std::string OscScene::appear(int id, const Message& message) {
    const bool valid = !message.isQuery() &&
                       std::any_of(_adm.entries.begin(), _adm.entries.end(), [&](auto& entry) {
                           return entry.name == message.words.back() &&
                                  entry.numbers == message.numbers.size() &&
                                  message.texts.size() == (entry.write != nullptr ? 1 : 0);
                       });
    if (!valid) {
        return {};
    }
    if (appeared_.size() >= kMaxAppeared) {
        std::erase_if(
            appeared_, [this](int former) { return world_.getEmitter(former) == nullptr; });
    }
    if (appeared_.size() >= kMaxAppeared) {
        return "there is no emitter " + std::to_string(id) + ", and " +
               std::to_string(kMaxAppeared) + " have appeared already";
    }
    touch(PartKind::Emitter, id);
    Orvel::CreateEmitterEvent event;
    event.address(Orvel::CmdCreateEmitter, id);
    apply_(event);
    if (Orvel::Emitter* emitter = world_.getEmitter(id)) {
        appeared_.insert(id);
        setReach(*emitter, 1.0F);
        if (Orvel::Source* source = world_.getSource(id)) {
            reconnect(*emitter, source, EventSteps{*this});
        }
    }
    return {};
}

void OscScene::setHooks(Subscribe subscribe, Touch touch) {
    subscribe_ = std::move(subscribe);
    touch_ = std::move(touch);
}

void OscScene::touch(PartKind kind, int id) const {
    if (touch_) {
        touch_(kind, id);
    }
}

template <class Part>
void OscScene::visit(
    const Family<Part>& family, std::uint64_t number, int id, Part& part,
    const Visit& visit) const {
    for (std::size_t i = 0; i < family.entries.size(); ++i) {
        if (family.entries[i].sent) {
            const auto middle = static_cast<std::uint64_t>(id) << 8U;
            visit(number << 40U | middle | i, (this->*family.entries[i].read)(part));
        }
    }
}

void OscScene::visit(PartKind kind, int id, const Visit& visit) {
    if (kind == PartKind::World) {
        std::uint64_t number = kWorldFamilies;
        for (const auto* family : {&_admListener, &_admScene, &_listener, &_world}) {
            this->visit(*family, number++, 0, world_, visit);
        }
    } else if (kind == PartKind::Source) {
        if (Orvel::Source* source = world_.getSource(id)) {
            this->visit(_source, kSourceFamily, id, *source, visit);
        }
    } else if (Orvel::Emitter* emitter = world_.getEmitter(id)) {
        this->visit(_adm, kAdmFamily, id, *emitter, visit);
        this->visit(_emitter, kEmitterFamily, id, *emitter, visit);
    }
}

void OscScene::visit(const Visit& visit) {
    for (const auto& [id, emitter] : world_.emitters()) {
        this->visit(_adm, kAdmFamily, id, *emitter, visit);
        this->visit(_emitter, kEmitterFamily, id, *emitter, visit);
    }
    for (const auto& [id, source] : world_.sources()) {
        this->visit(_source, kSourceFamily, id, *source, visit);
    }
    this->visit(PartKind::World, 0, visit);
}

std::string OscScene::pathOf(Key key) const {
    const auto number = key >> 40U;
    const auto entry = key & 0xFFU;
    const auto path = [&](const auto& family) {
        const int id = static_cast<int>((key >> 8U) & 0xFFFFFFFFU);
        return fullPath(family.prefix, id, family.entries[entry].name);
    };
    if (number == kSourceFamily) {
        return path(_source);
    }
    if (number < kWorldFamilies) {
        return path(number == kAdmFamily ? _adm : _emitter);
    }
    const std::array families{&_admListener, &_admScene, &_listener, &_world};
    return path(*families[number - kWorldFamilies]);
}

template <bool wanted>
OscScene::Expected OscScene::subscribe(Orvel::World& /*world*/, Numbers n) {
    return letGo(n) || !subscribe_ ? nullptr : subscribe_(wanted);
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
    touch(PartKind::Emitter, id);
    touch(PartKind::Emitter, id);
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

template <OscScene::State state, class Part>
OscScene::Expected OscScene::setState(Part& part, Numbers n) {
    if (!letGo(n) && state == State::PLAY) {
        restart(part, EventSteps{*this});
    } else if (!letGo(n)) {
        EventSteps{*this}.setState(part, state);
    }
    return nullptr;
}

const OscScene::Object* OscScene::find(int id) const {
    const auto object = objects_.find(id);
    return object == objects_.end() ? nullptr : &object->second;
}

float OscScene::unitOf(const Orvel::Emitter& emitter) const {
    const Object* object = find(emitter.id());
    return object == nullptr ? scale_ : object->unit.value_or(scale_);
}

template <std::size_t first, std::size_t count>
OscScene::Expected OscScene::admPlace(Orvel::Emitter& emitter, Numbers n) {
    const float unit = unitOf(emitter);
    std::array<float, 3> place = toAdm(emitter.position());
    for (std::size_t i = 0; i < count; ++i) {
        place[first + i] = coordinate(n[i]) * unit;
    }
    move(emitter, fromAdm(place[0], place[1], place[2]));
    return nullptr;
}

template <std::size_t first, std::size_t count>
OscValues OscScene::readPlace(Orvel::Emitter& emitter) const {
    const std::array<float, 3> place = toAdm(emitter.position());
    OscValues values;
    values.count = count;
    for (std::size_t i = 0; i < count; ++i) {
        values.numbers[i] = place[first + i] / unitOf(emitter);
    }
    return values;
}

void OscScene::setPolar(Orvel::Emitter& emitter, Polar polar) {
    polar.azimuth = std::clamp(polar.azimuth, -180.0F, 180.0F);
    polar.elevation = std::clamp(polar.elevation, -90.0F, 90.0F);
    polar.distance = std::max(polar.distance, 0.0F);
    // From the front to the left, and from the horizon upwards.
    const float azimuth = radians(polar.azimuth);
    const float elevation = radians(polar.elevation);
    const float length = polar.distance * unitOf(emitter);
    polar.place = fromAdm(
        -std::sin(azimuth) * std::cos(elevation) * length,
        std::cos(azimuth) * std::cos(elevation) * length, std::sin(elevation) * length);
    objects_[emitter.id()].polar = polar;
    move(emitter, polar.place);
}

OscScene::Polar OscScene::polarOf(const Orvel::Emitter& emitter) const {
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

OscScene::Expected OscScene::admAed(Orvel::Emitter& emitter, Numbers n) {
    setPolar(emitter, {n[0], n[1], std::min(n[2], 1.0F), {}});
    return nullptr;
}

OscValues OscScene::readAed(Orvel::Emitter& emitter) const {
    const Polar polar = polarOf(emitter);
    return floats({polar.azimuth, polar.elevation, polar.distance});
}

template <float OscScene::Polar::*member>
OscScene::Expected OscScene::admPolar(Orvel::Emitter& emitter, Numbers n) {
    Polar polar = polarOf(emitter);
    polar.*member = member == &Polar::distance ? std::min(n[0], 1.0F) : n[0];
    setPolar(emitter, polar);
    return nullptr;
}

template <float OscScene::Polar::*member>
OscValues OscScene::readPolar(Orvel::Emitter& emitter) const {
    return floats({polarOf(emitter).*member});
}

OscScene::Expected OscScene::admWidth(Orvel::Emitter& emitter, Numbers n) {
    objects_[emitter.id()].width = std::clamp(n[0], 0.0F, 1.0F);
    return nullptr;
}

OscValues OscScene::readWidth(Orvel::Emitter& emitter) const {
    const Object* object = find(emitter.id());
    return floats({object == nullptr ? 0.0F : object->width});
}

void OscScene::setReach(Orvel::Emitter& emitter, float reference) {
    const float outer = unitOf(emitter);
    const float inner = reference * outer;
    const std::array<float, 4> extents{outer, outer, inner, inner};
    hull(emitter, extents);
}

float OscScene::referenceOf(const Orvel::Emitter& emitter) const {
    const float inner = (emitter.minBack() + emitter.minFront()) * 0.5F;
    return std::clamp(inner / unitOf(emitter), 0.0F, 1.0F);
}

OscScene::Expected OscScene::admReference(Orvel::Emitter& emitter, Numbers n) {
    setReach(emitter, std::clamp(n[0], 0.0F, 1.0F));
    return nullptr;
}

OscValues OscScene::readReference(Orvel::Emitter& emitter) const {
    return floats({referenceOf(emitter)});
}

OscScene::Expected OscScene::admUnit(Orvel::Emitter& emitter, Numbers n) {
    const float before = unitOf(emitter);
    const float reference = referenceOf(emitter);
    const Polar polar = polarOf(emitter);
    const bool placed = find(emitter.id()) != nullptr && objects_[emitter.id()].polar;
    const float unit = std::max(n[0], kSmallestUnit);
    objects_[emitter.id()].unit = unit;
    // The normalised position stays.
    if (placed) {
        setPolar(emitter, polar);
    } else {
        const Orvel::Vec3f& place = emitter.position();
        const float factor = unit / before;
        move(emitter, {place.x * factor, place.y * factor, place.z * factor});
    }
    setReach(emitter, reference);
    return nullptr;
}

OscValues OscScene::readUnit(Orvel::Emitter& emitter) const {
    return floats({unitOf(emitter)});
}

void OscScene::setName(Orvel::Emitter& emitter, std::string name) {
    objects_[emitter.id()].name = shortened(std::move(name));
}

OscValues OscScene::readName(Orvel::Emitter& emitter) const {
    const Object* object = find(emitter.id());
    return text(object == nullptr ? "" : object->name);
}

void OscScene::changeTo(Orvel::World& /*world*/, std::string name) {
    lastChange_ = shortened(std::move(name));
    if (change_) {
        change_(lastChange_);
    }
}

OscValues OscScene::readChange(Orvel::World& /*world*/) const {
    return text(lastChange_);
}

void OscScene::setGain(Orvel::Emitter& emitter, float gain) {
    Orvel::EmitterParamEvent event;
    event.address(Orvel::CmdSetEmitterParam, emitter.id());
    event.setParam(emitter.paramFlag(), emitter.paramValue(), gain);
    apply_(event);
}

bool OscScene::muted(const Orvel::Emitter& emitter) const {
    const Object* object = find(emitter.id());
    return emitter.gain() == 0.0F && object != nullptr && object->gain;
}

OscScene::Expected OscScene::gain(Orvel::Emitter& emitter, Numbers n) {
    if (n[0] < 0.0F) {
        return "expected a gain of at least 0";
    }
    if (muted(emitter)) {
        objects_[emitter.id()].gain = n[0];
    } else {
        setGain(emitter, n[0]);
    }
    return nullptr;
}

OscScene::Expected OscScene::admGain(Orvel::Emitter& emitter, Numbers n) {
    const float clamped = std::max(n[0], 0.0F);
    return gain(emitter, {&clamped, 1});
}

OscValues OscScene::readGain(Orvel::Emitter& emitter) const {
    return floats({muted(emitter) ? *find(emitter.id())->gain : emitter.gain()});
}

OscScene::Expected OscScene::admMute(Orvel::Emitter& emitter, Numbers n) {
    if (muted(emitter) == (n[0] != 0.0F)) {
        return nullptr;
    }
    std::optional<float>& former = objects_[emitter.id()].gain;
    if (n[0] != 0.0F) {
        former = emitter.gain();
        setGain(emitter, 0.0F);
    } else {
        setGain(emitter, *former);
        former.reset();
    }
    return nullptr;
}

OscValues OscScene::readMute(Orvel::Emitter& emitter) const {
    return whole(muted(emitter) ? 1 : 0);
}

OscScene::Expected OscScene::admListenerXyz(Orvel::World& world, Numbers n) {
    const Orvel::Vec3f place =
        fromAdm(coordinate(n[0]) * scale_, coordinate(n[1]) * scale_, coordinate(n[2]) * scale_);
    moveListener(world, place, world.listenerRotation(), EventSteps{*this});
    return nullptr;
}

OscValues OscScene::readAdmListener(Orvel::World& world) const {
    const std::array<float, 3> place = toAdm(world.listenerPosition());
    return floats({place[0] / scale_, place[1] / scale_, place[2] / scale_});
}

OscScene::Expected OscScene::admListenerYpr(Orvel::World& world, Numbers n) {
    std::array<float, 3> angles{};
    std::transform(n.begin(), n.end(), angles.begin(), [](float angle) {
        return std::clamp(angle, -180.0F, 180.0F);
    });
    return listenerOrientation(world, angles);
}

OscValues OscScene::readAngles(Orvel::World& world) const {
    const std::array<float, 3> angles = toYawPitchRoll(world.listenerRotation());
    return floats({angles[0], angles[1], angles[2]});
}

OscScene::Expected OscScene::position(Orvel::Emitter& emitter, Numbers n) {
    move(emitter, {n[0], n[1], n[2]});
    return nullptr;
}

OscValues OscScene::readPosition(Orvel::Emitter& emitter) const {
    return floats(emitter.position());
}

OscScene::Expected OscScene::orientation(Orvel::Emitter& emitter, Numbers n) {
    Orvel::Quaternion rotation;
    if (!toRotation(n, rotation)) {
        return kNoRotation;
    }
    rotate(emitter, rotation);
    return nullptr;
}

OscValues OscScene::readOrientation(Orvel::Emitter& emitter) const {
    return floats(emitter.rotation());
}

OscScene::Expected OscScene::value(Orvel::Emitter& emitter, Numbers n) {
    Orvel::EmitterParamEvent event;
    event.address(Orvel::CmdSetEmitterParam, emitter.id());
    event.setParam(emitter.paramFlag(), n[0], emitter.gain());
    apply_(event);
    return nullptr;
}

OscValues OscScene::readValue(Orvel::Emitter& emitter) const {
    return floats({emitter.paramValue()});
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

OscValues OscScene::readHull(Orvel::Emitter& emitter) const {
    return floats({emitter.maxBack(), emitter.maxFront(), emitter.minBack(), emitter.minFront()});
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

OscValues OscScene::readSource(Orvel::Emitter& emitter) const {
    return whole(emitter.source() == nullptr ? 0 : emitter.source()->id());
}

OscScene::Expected OscScene::destroy(Orvel::Emitter& emitter, Numbers n) {
    if (!letGo(n)) {
        objects_.erase(emitter.id());
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

OscValues OscScene::readPitch(Orvel::Source& source) const {
    return floats({source.pitch()});
}

OscScene::Expected OscScene::loop(Orvel::Source& source, Numbers n) {
    Orvel::SourceParamEvent event;
    event.address(Orvel::CmdSetSourceParam, source.id());
    event.pitch = source.pitch();
    event.loop = n[0] != 0.0F;
    apply_(event);
    return nullptr;
}

OscValues OscScene::readLoop(Orvel::Source& source) const {
    return whole(source.loop() ? 1 : 0);
}

OscScene::Expected OscScene::listenerPosition(Orvel::World& world, Numbers n) {
    moveListener(world, {n[0], n[1], n[2]}, world.listenerRotation(), EventSteps{*this});
    return nullptr;
}

OscValues OscScene::readListenerPosition(Orvel::World& world) const {
    return floats(world.listenerPosition());
}

OscScene::Expected OscScene::listenerOrientation(Orvel::World& world, Numbers n) {
    Orvel::Quaternion rotation;
    if (!toRotation(n, rotation)) {
        return kNoRotation;
    }
    moveListener(world, world.listenerPosition(), rotation, EventSteps{*this});
    return nullptr;
}

OscValues OscScene::readListenerOrientation(Orvel::World& world) const {
    return floats(world.listenerRotation());
}

OscScene::Expected OscScene::enabled(Orvel::World& world, Numbers n) {
    EventSteps{*this}.setEnabled(world, n[0] != 0.0F);
    return nullptr;
}

OscValues OscScene::readEnabled(Orvel::World& world) const {
    return whole(world.enabled() ? 1 : 0);
}

} // namespace Show
