#include <Show/scene/SceneFile.h>

#include <Show/detail/VisibleText.h>
#include <Show/scene/ObjectReader.h>

#include <Corvid/URL.h>
#include <Orvel/OutputLayout.h>
#include <Orvel/VoicesBackend.h>
#include <Orvel/detail/PathProblem.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <set>
#include <system_error>
#include <tuple>
#include <utility>

namespace Show {

namespace {

using State = Orvel::WorldPart::State;
using Keys = ObjectReader::Keys;

constexpr float kMax = std::numeric_limits<float>::max();
constexpr Range kAnyNumber{-kMax, kMax, true, "a number"};
constexpr Range kNotNegative{0.0, kMax, true, "a number of at least 0"};
constexpr Range kPitch{0.0, kMax, false, "a number above 0"};
constexpr Range kTime{0.0, kMaxSeconds, true, "a number of seconds from 0 to 86400"};
constexpr Range kLength{0.0, kMaxSeconds, false, "a number of seconds above 0, up to 86400"};
constexpr Range kToneLength{0.0, 3600.0, false, "a number of seconds above 0, up to 3600"};
constexpr std::size_t kMaxCueName = 64;
constexpr Range kHertz{0.0, 22050.0, false, "a frequency above 0, up to 22050"};
constexpr Range kDoppler{0.0, 100.0, true, "a number from 0 to 100"};
constexpr Range kAmplitude{0.0, 1.0, true, "a number from 0 to 1"};

bool startsWithScheme(std::string_view text) {
    const auto isLetter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
    const auto colon = text.find(':');
    if (colon == std::string_view::npos || !isLetter(text[0])) {
        return false;
    }
    const std::string_view scheme = text.substr(0, colon);
    return std::all_of(
               scheme.begin(), scheme.end(),
               [&](char c) {
                   return isLetter(c) || (c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.';
               }) &&
           (text.substr(colon, 3) == "://" || scheme == "file");
}

/// A timeline entry, and the places of its references.
struct Entry {
    Change change;
    Where idWhere;
    Where connectWhere;
};

class SceneReader {
public:
    SceneReader(const std::string& path, bool lookForFiles, std::vector<Problem>& problems)
        : report_(path, problems), lookForFiles_(lookForFiles) {
        scene_.path = path;
        std::error_code error;
        folder_ = std::filesystem::absolute(path, error).parent_path();
    }

    Scene read(const JsonValue& root) {
        const JsonPlace top;
        if (root.kind != JsonKind::Object) {
            report_.add(
                root.line, "",
                R"(expected a scene such as { "orvel": 1, ... }, found )" + root.describe());
            return std::move(scene_);
        }
        // The version is checked first, because another version may define other keys.
        const JsonValue* version = root.find("orvel");
        if (version == nullptr) {
            report_.add(
                root.line, "",
                R"(expected the key "orvel" with 1, the version of the format, found no such key)");
        } else if (version->kind != JsonKind::Number || version->number != 1.0) {
            report_.expected(*version, {&top, "orvel"}, "1, the version of the format");
            return std::move(scene_);
        }
        const ObjectReader object(
            report_, root, top,
            {"$schema", "orvel", "duration", "output", "doppler", "reverb", "listener", "sources",
             "emitters", "timeline", "cues"});
        static_cast<void>(object.text("$schema", "the address of the schema"));
        scene_.duration = object.number("duration", kLength);
        readRendering(object);
        if (const JsonValue* listener = object.find("listener")) {
            const JsonPlace place = object.place("listener");
            const ObjectReader reader(report_, *listener, place, {"position", "rotation", "ypr"});
            scene_.listenerPosition = reader.position().value_or(scene_.listenerPosition);
            scene_.listenerRotation = reader.rotation().value_or(scene_.listenerRotation);
        }
        forEach(object, "sources", [&](const JsonValue& value, const JsonPlace& place) {
            readInitialSource(value, place);
        });
        forEach(object, "emitters", [&](const JsonValue& value, const JsonPlace& place) {
            readInitialEmitter(value, place);
        });
        checkSharedStates();
        forEach(object, "timeline", [&](const JsonValue& value, const JsonPlace& place) {
            readEntry(value, place);
        });
        forEach(object, "cues", [&](const JsonValue& value, const JsonPlace& place) {
            readCue(value, place);
        });
        endCues();
        std::stable_sort(entries_.begin(), entries_.end(), [](const Entry& a, const Entry& b) {
            return a.change.at < b.change.at;
        });
        checkReferences();
        report_.finish();
        for (Entry& entry : entries_) {
            scene_.timeline.push_back(std::move(entry.change));
        }
        return std::move(scene_);
    }

private:
    /// The keys that become parameters of the kind "voices".
    void readRendering(const ObjectReader& object) {
        const auto add = [this](const char* name, const std::string& value) {
            scene_.voicesParams +=
                (scene_.voicesParams.empty() ? "" : " ") + std::string(name) + '=' + value;
        };
        std::string layouts = "one of";
        for (const Orvel::OutputLayout& layout : Orvel::kOutputLayouts) {
            layouts += (&layout == Orvel::kOutputLayouts.data() ? " \"" : ", \"") +
                       std::string(layout.name) + '"';
        }
        if (const auto output = object.text("output", layouts.c_str())) {
            if (Orvel::findOutputLayout(*output) != nullptr) {
                add("output", *output);
            } else {
                object.expected("output", layouts);
            }
        }
        if (const auto doppler = object.number("doppler", kDoppler)) {
            add("doppler", printable(*doppler));
        }
        const auto readPreset = [&](const ObjectReader& from, const char* key) {
            constexpr const char* kWords = "the name of a preset, such as \"concerthall\"";
            const auto preset = from.text(key, kWords);
            if (preset && Orvel::VoicesBackend::reverbDecay(*preset) > 0.0F) {
                add("reverb", *preset);
            } else if (preset) {
                from.expected(key, kWords);
            }
        };
        const JsonValue* reverb = object.find("reverb");
        if (reverb != nullptr && reverb->kind == JsonKind::Object) {
            const JsonPlace place = object.place("reverb");
            const ObjectReader reader(report_, *reverb, place, {"preset", "wet"});
            reader.require("preset", "the name of a preset");
            readPreset(reader, "preset");
            if (const auto wet = reader.number("wet", kAmplitude)) {
                add("wet", printable(*wet));
            }
        } else if (reverb != nullptr) {
            readPreset(object, "reverb");
        }
    }

    template <class Read>
    void forEach(const ObjectReader& object, const char* key, Read read) {
        const JsonValue* list = object.find(key);
        if (list == nullptr) {
            return;
        }
        if (list->kind != JsonKind::Array) {
            object.expected(key, "an array of objects");
            return;
        }
        const JsonPlace place = object.place(key);
        for (std::size_t i = 0; i < list->items.size(); ++i) {
            read(list->items[i], JsonPlace{&place, {}, i});
        }
    }

    /// The sound of a source or a timeline entry, if any.
    std::pair<Sound, Where> readSound(const ObjectReader& object) {
        std::vector<const char*> given;
        for (const char* key : {"file", "url", "tone"}) {
            if (object.find(key) != nullptr) {
                given.push_back(key);
            }
        }
        if (given.size() > 1) {
            object.expected(
                given[1], std::string(R"(only one of "file", "url" and "tone" beside )") +
                              inQuotes(given[0]));
            return {};
        }
        bool keep = false;
        if (object.find("channels") != nullptr) {
            const JsonValue& channels = *object.find("channels");
            keep = channels.kind == JsonKind::Text && channels.text == "keep";
            if (!keep && (channels.kind != JsonKind::Text || channels.text != "mix")) {
                object.expected("channels", R"("mix" or "keep")");
            } else if (object.find("file") == nullptr) {
                object.expected("channels", R"(no "channels" without "file" beside it)");
            }
        }
        if (given.empty()) {
            return {};
        }
        Where where = object.where(given[0]);
        if (const auto file = object.text("file", "the path of a sound file")) {
            SoundFile sound{(folder_ / *file).lexically_normal().string(), keep};
            lookFor(sound.path, where);
            return {sound, where};
        }
        if (const auto url = object.text("url", "an absolute URL")) {
            if (isUrl(*url)) {
                return {SoundUrl{*url}, where};
            }
            object.expected(
                "url", R"(an absolute URL such as "https://example.org/bell.wav" (a file beside )"
                       R"(the scene is named with "file"))");
        }
        if (const JsonValue* tone = object.find("tone")) {
            const JsonPlace place = object.place("tone");
            const ObjectReader reader(report_, *tone, place, {"hertz", "seconds", "amplitude"});
            const Tone standard;
            return {
                Tone{
                    reader.number("hertz", kHertz).value_or(standard.hertz),
                    reader.number("seconds", kToneLength).value_or(standard.seconds),
                    reader.number("amplitude", kAmplitude).value_or(standard.amplitude)},
                where};
        }
        return {};
    }

    static bool isUrl(const std::string& text) {
        if (!startsWithScheme(text)) {
            return false;
        }
        try {
            const Corvid::URL url(text);
            return true;
        } catch (const Corvid::URLImpl::Exception&) {
            return false;
        }
    }

    void lookFor(const std::string& path, const Where& where) {
        if (!lookForFiles_) {
            return;
        }
        const auto [known, isNew] = fileProblems_.try_emplace(path);
        if (isNew) {
            known->second = soundFileProblem(path);
        }
        if (!known->second.empty()) {
            report_.add(where.line, where.field, known->second);
        }
    }

    SourceSpec readSource(const ObjectReader& object, const Where& where) {
        SourceSpec source;
        source.where = where;
        std::tie(source.sound, source.soundWhere) = readSound(object);
        if (object.value().kind == JsonKind::Object && object.find("file") == nullptr &&
            object.find("url") == nullptr && object.find("tone") == nullptr) {
            report_.add(
                where.line, where.field,
                R"(expected a sound, given by one of the keys "file", "url" and "tone", )"
                "found none of them");
        }
        source.loop = object.flag("loop").value_or(source.loop);
        source.pitch = object.real("pitch", kPitch).value_or(source.pitch);
        source.state = object.state(true).value_or(source.state);
        return source;
    }

    EmitterSpec readEmitter(const ObjectReader& object, const Where& where) {
        EmitterSpec emitter;
        emitter.where = where;
        emitter.position = object.position().value_or(emitter.position);
        emitter.rotation = object.rotation().value_or(emitter.rotation);
        if (object.find("hull") != nullptr) {
            const auto extents = readHull(object);
            for (std::size_t i = 0; i < extents.size(); ++i) {
                float& extent = emitter.hull.*Orvel::kHullExtents[i].value;
                extent = extents[i].value_or(extent);
            }
            const JsonValue& hull = *object.find("hull");
            const auto given = [&](const char* key) { return hull.find(key) != nullptr; };
            emitter.oneInner = given("minBack") != given("minFront");
            emitter.oneOuter = given("maxBack") != given("maxFront");
        }
        emitter.gain = object.real("gain", kNotNegative).value_or(emitter.gain);
        emitter.spatial = object.flag("spatial").value_or(emitter.spatial);
        emitter.value = object.real("value", kAnyNumber).value_or(emitter.value);
        emitter.state = object.state(true).value_or(emitter.state);
        if (const JsonValue* labels = object.find("labels")) {
            emitter.labels = readLabels(object, *labels);
        }
        return emitter;
    }

    /// The extents in the key "hull".
    decltype(Change::hull) readHull(const ObjectReader& object) {
        const JsonPlace place = object.place("hull");
        const ObjectReader hull(
            report_, *object.find("hull"), place, {"maxBack", "maxFront", "minBack", "minFront"});
        decltype(Change::hull) extents;
        for (std::size_t i = 0; i < extents.size(); ++i) {
            extents[i] = hull.real(Orvel::kHullExtents[i].name, kNotNegative);
        }
        return extents;
    }

    std::vector<std::string> readLabels(const ObjectReader& object, const JsonValue& labels) {
        std::vector<std::string> result;
        if (labels.kind != JsonKind::Array) {
            object.expected("labels", "an array of texts");
            return result;
        }
        const JsonPlace place = object.place("labels");
        for (std::size_t i = 0; i < labels.items.size(); ++i) {
            const JsonValue& label = labels.items[i];
            // A back end's labels are separated by commas, so others could not match.
            if (label.kind != JsonKind::Text || !ObjectReader::isPlain(label.text) ||
                label.text.find(',') != std::string::npos || label.text.front() == ' ' ||
                label.text.back() == ' ') {
                report_.expected(
                    label, {&place, {}, i}, "a text without commas and without blanks at its ends");
            } else {
                result.emplace_back(label.text);
            }
        }
        return result;
    }

    /// The id of a part in "sources" or "emitters".
    std::optional<int>
    readNewId(const ObjectReader& object, std::map<int, int>& lines, bool& unsure) {
        object.require("id", "a whole number");
        const std::optional<int> id = object.id("id");
        if (!id) {
            unsure = true;
            return id;
        }
        const Where where = object.where("id");
        const auto [known, isNew] = lines.try_emplace(*id, where.line);
        if (!isNew) {
            report_.add(
                where.line, where.field,
                "expected an id of its own, found " + std::to_string(*id) + ", which line " +
                    std::to_string(known->second) + " has already");
        }
        return id;
    }

    void readInitialSource(const JsonValue& value, const JsonPlace& place) {
        const ObjectReader object(
            report_, value, place,
            {"id", "file", "url", "tone", "channels", "loop", "pitch", "state"});
        const std::optional<int> id = readNewId(object, sourceLines_, unsureSources_);
        SourceSpec source = readSource(object, {value.line, place.str()});
        source.id = id.value_or(0);
        scene_.sources.push_back(std::move(source));
    }

    void readInitialEmitter(const JsonValue& value, const JsonPlace& place) {
        const ObjectReader object(
            report_, value, place,
            {"id", "source", "position", "rotation", "ypr", "hull", "gain", "spatial", "value",
             "labels", "state"});
        const std::optional<int> id = readNewId(object, emitterLines_, unsureEmitters_);
        EmitterSpec emitter = readEmitter(object, {value.line, place.str()});
        emitter.id = id.value_or(0);
        const JsonValue* source = object.find("source");
        if (source != nullptr && source->kind != JsonKind::Null) {
            emitter.source = object.id("source");
            if (emitter.source && !sourceLines_.contains(*emitter.source) && !unsureSources_) {
                object.expected("source", R"(the id of one of "sources" or null)");
            }
        }
        scene_.emitters.push_back(std::move(emitter));
    }

    /// Connected parts share one state, so two different states are a mistake.
    void checkSharedStates() {
        std::map<int, std::pair<State, std::string>> states; // by source
        for (const SourceSpec& source : scene_.sources) {
            if (source.id != 0 && source.state != State::NONE) {
                states.try_emplace(source.id, source.state, source.where.field);
            }
        }
        for (const EmitterSpec& emitter : scene_.emitters) {
            if (!emitter.source || emitter.state == State::NONE) {
                continue;
            }
            const auto [known, isNew] =
                states.try_emplace(*emitter.source, emitter.state, emitter.where.field);
            if (!isNew && known->second.first != emitter.state) {
                report_.add(
                    emitter.where.line, emitter.where.field + ".state",
                    "expected the state of " + known->second.second +
                        ", because what plays one source shares its state, found another");
            }
        }
    }

    void readEntry(const JsonValue& value, const JsonPlace& place) {
        if (value.kind != JsonKind::Object) {
            report_.expected(value, place, "an object");
            return;
        }
        std::vector<const char*> targets;
        for (const char* key : {"emitter", "source", "listener", "world"}) {
            if (value.find(key) != nullptr) {
                targets.push_back(key);
            }
        }
        if (targets.size() != 1) {
            std::string text =
                R"(expected exactly one of the keys "emitter", "source", "listener" and "world", found )" +
                (targets.empty() ? "none of them" : listed(targets));
            if (value.find("emitter") != nullptr && value.find("source") != nullptr) {
                text += R"(; an emitter's source is given by "connect")";
            }
            report_.add(value.line, place.str(), std::move(text));
            if (value.find("create") != nullptr || value.find("destroy") != nullptr) {
                unsureEmitters_ = unsureSources_ = true;
            }
            return;
        }
        Entry entry;
        entry.change.where = {value.line, place.str()};
        const std::string_view target = targets[0];
        if (target == "emitter") {
            readEmitterEntry(value, place, entry);
        } else if (target == "source") {
            readSourceEntry(value, place, entry);
        } else if (target == "listener") {
            readListenerEntry(value, place, entry);
        } else {
            readWorldEntry(value, place, entry);
        }
    }

    /// Reads the keys that all entries have. `target` is "emitter", ... ; `isNewPart`: the entry
    /// creates a part. Returns nothing if one of them is invalid.
    void readCommon(const ObjectReader& object, Entry& entry, const char* target) {
        object.require("at", "a number of seconds");
        const std::optional<double> at = object.number("at", kTime);
        Change& change = entry.change;
        change.at = at.value_or(0.0);
        change.over = object.number("over", kTime).value_or(0.0);
        bool good = at.has_value();
        if (change.target == Change::Target::Emitter || change.target == Change::Target::Source) {
            const std::optional<int> id = object.id(target);
            change.id = id.value_or(0);
            entry.idWhere = object.where(target);
            good = good && id.has_value();
        } else {
            object.mark(target);
        }
        if (good) {
            entries_.push_back(std::move(entry));
        } else if (change.newEmitter || change.newSource || change.destroy) {
            bool& unsure =
                change.target == Change::Target::Emitter ? unsureEmitters_ : unsureSources_;
            unsure = true;
        }
    }

    void requireChange(const ObjectReader& object, Keys changes) {
        for (const char* key : changes) {
            if (object.find(key) != nullptr) {
                return;
            }
        }
        report_.add(
            object.where().line, object.where().field,
            "expected a change, that is one of the keys " + listed(changes) + ", found none");
    }

    /// "over" is only valid beside one of these.
    void checkOver(const ObjectReader& object, Keys gradual) {
        if (object.find("over") == nullptr) {
            return;
        }
        for (const char* key : gradual) {
            if (object.find(key) != nullptr) {
                return;
            }
        }
        object.expected("over", "\"over\" only beside one of the keys " + listed(gradual));
    }

    /// Reads an entry that destroys a part; false, without effect, if this is another entry.
    bool
    readDestroy(const JsonValue& value, const JsonPlace& place, Entry& entry, const char* part) {
        if (value.find("destroy") == nullptr) {
            return false;
        }
        const ObjectReader object(report_, value, place, {"at", part, "destroy"});
        entry.change.destroy = object.mark("destroy");
        readCommon(object, entry, part);
        return true;
    }

    void readEmitterEntry(const JsonValue& value, const JsonPlace& place, Entry& entry) {
        Change& change = entry.change;
        change.target = Change::Target::Emitter;
        if (readDestroy(value, place, entry, "emitter")) {
            return;
        }
        if (value.find("create") != nullptr) {
            const ObjectReader object(
                report_, value, place,
                {"at", "emitter", "create", "connect", "position", "rotation", "ypr", "hull",
                 "gain", "spatial", "value", "labels", "state"});
            object.mark("create");
            change.newEmitter = readEmitter(object, change.where);
            readConnect(object, entry);
            change.newEmitter->source = std::exchange(change.connect, std::nullopt);
            change.reconnect = false;
            readCommon(object, entry, "emitter");
            return;
        }
        const ObjectReader object(
            report_, value, place,
            {"at", "over", "emitter", "create", "destroy", "connect", "position", "rotation", "ypr",
             "hull", "gain", "spatial", "value", "state"});
        requireChange(
            object, {"create", "destroy", "connect", "position", "rotation", "ypr", "hull", "gain",
                     "spatial", "value", "state"});
        checkOver(object, {"position", "rotation", "ypr", "hull", "gain", "value"});
        change.position = object.position();
        change.rotation = object.rotation();
        if (object.find("hull") != nullptr) {
            change.hull = readHull(object);
        }
        change.gain = object.real("gain", kNotNegative);
        change.spatial = object.flag("spatial");
        change.value = object.real("value", kAnyNumber);
        change.state = object.state(false);
        readConnect(object, entry);
        readCommon(object, entry, "emitter");
    }

    void readConnect(const ObjectReader& object, Entry& entry) {
        const JsonValue* source = object.find("connect");
        if (source == nullptr) {
            return;
        }
        entry.connectWhere = object.where("connect");
        if (source->kind == JsonKind::Null) {
            entry.change.reconnect = true;
        } else {
            entry.change.connect = object.id("connect");
            entry.change.reconnect = entry.change.connect.has_value();
        }
    }

    void readSourceEntry(const JsonValue& value, const JsonPlace& place, Entry& entry) {
        Change& change = entry.change;
        change.target = Change::Target::Source;
        if (readDestroy(value, place, entry, "source")) {
            return;
        }
        if (value.find("create") != nullptr) {
            const ObjectReader object(
                report_, value, place,
                {"at", "source", "create", "file", "url", "tone", "channels", "loop", "pitch",
                 "state"});
            object.mark("create");
            change.newSource = readSource(object, change.where);
            readCommon(object, entry, "source");
            return;
        }
        const ObjectReader object(
            report_, value, place,
            {"at", "over", "source", "create", "destroy", "file", "url", "tone", "channels", "loop",
             "pitch", "state"});
        requireChange(
            object, {"create", "destroy", "file", "url", "tone", "loop", "pitch", "state"});
        checkOver(object, {"pitch"});
        std::tie(change.sound, change.soundWhere) = readSound(object);
        change.loop = object.flag("loop");
        change.pitch = object.real("pitch", kPitch);
        change.state = object.state(false);
        readCommon(object, entry, "source");
    }

    void readListenerEntry(const JsonValue& value, const JsonPlace& place, Entry& entry) {
        entry.change.target = Change::Target::Listener;
        const ObjectReader object(
            report_, value, place, {"at", "over", "listener", "position", "rotation", "ypr"});
        requireChange(object, {"position", "rotation", "ypr"});
        entry.change.position = object.position();
        entry.change.rotation = object.rotation();
        readCommon(object, entry, "listener");
    }

    void readWorldEntry(const JsonValue& value, const JsonPlace& place, Entry& entry) {
        entry.change.target = Change::Target::World;
        const ObjectReader object(report_, value, place, {"at", "world", "enabled", "spatialize"});
        requireChange(object, {"enabled", "spatialize"});
        entry.change.enabled = object.flag("enabled");
        entry.change.spatialize = object.flag("spatialize");
        readCommon(object, entry, "world");
    }

    void readCue(const JsonValue& value, const JsonPlace& place) {
        const ObjectReader object(report_, value, place, {"name", "at", "until"});
        CueSpec cue;
        cue.where = {value.line, place.str()};
        object.require("name", "a name");
        object.require("at", "a number of seconds");
        const auto at = object.number("at", kTime);
        const auto until = object.number("until", kLength);
        if (at && until && *until <= *at) {
            object.expected("until", "a time after that of \"at\"");
        }
        if (const auto name = object.text("name", "a name")) {
            // The name is a word in paths of Open Sound Control.
            const bool good = name->size() <= kMaxCueName &&
                              name->find_first_of(" #*,/?[]{}") == std::string::npos;
            const auto [known, isNew] = cueLines_.try_emplace(*name, object.where("name").line);
            if (!good) {
                object.expected(
                    "name", "a name of at most 64 bytes, without blanks and # * , / ? [ ] { }");
            } else if (!isNew) {
                object.expected(
                    "name", "a name that no other cue has; line " + std::to_string(known->second) +
                                " has it too");
            }
            cue.name = *name;
        }
        cue.at = at.value_or(0.0);
        cue.until = until.value_or(0.0);
        scene_.cues.push_back(std::move(cue));
    }

    /// A cue without an end lasts until the next one begins.
    void endCues() {
        std::set<double> begins;
        for (const CueSpec& cue : scene_.cues) {
            begins.insert(cue.at);
        }
        for (CueSpec& cue : scene_.cues) {
            if (cue.until == 0.0) {
                const auto next = begins.upper_bound(cue.at);
                cue.until = next == begins.end() ? std::numeric_limits<double>::infinity() : *next;
            }
        }
    }

    /// Follows the timeline and checks that every reference exists at its time.
    void checkReferences() {
        Living emitters{{}, unsureEmitters_, "emitter"};
        Living sources{{}, unsureSources_, "source"};
        for (const auto& [id, line] : emitterLines_) {
            emitters.ids.insert(id);
        }
        for (const auto& [id, line] : sourceLines_) {
            sources.ids.insert(id);
        }
        for (Entry& entry : entries_) {
            Change& change = entry.change;
            if (change.newSource) {
                change.newSource->id = change.id;
            }
            if (change.newEmitter) {
                change.newEmitter->id = change.id;
            }
            if (change.target == Change::Target::Emitter) {
                checkPart(entry, emitters, change.newEmitter.has_value());
            } else if (change.target == Change::Target::Source) {
                checkPart(entry, sources, change.newSource.has_value());
            }
            const std::optional<int> source =
                change.newEmitter ? change.newEmitter->source : change.connect;
            if (source && !sources.ids.contains(*source) && !sources.unsure) {
                reportUnknown(entry.connectWhere, sources, *source, change.at);
            }
        }
    }

    /// The parts that exist at a time in the timeline.
    struct Living {
        std::set<int> ids;
        bool unsure; ///< an unreadable item may have created others
        const char* kind;
    };

    void checkPart(const Entry& entry, Living& living, bool create) {
        const int id = entry.change.id;
        const bool exists = living.ids.contains(id);
        if (create) {
            if (exists && !living.unsure) {
                report_.add(
                    entry.idWhere.line, entry.idWhere.field,
                    std::string("expected the id of no ") + living.kind + " that exists at " +
                        printable(entry.change.at) + " s, found " + std::to_string(id));
            }
            living.ids.insert(id);
            return;
        }
        if (!exists && !living.unsure) {
            reportUnknown(entry.idWhere, living, id, entry.change.at);
        }
        if (entry.change.destroy) {
            living.ids.erase(id);
        }
    }

    void reportUnknown(const Where& where, const Living& living, int id, double at) {
        report_.add(
            where.line, where.field,
            std::string("expected the id of a") + (living.kind[0] == 'e' ? "n " : " ") +
                living.kind + " that exists at " + printable(at) + " s, found " +
                std::to_string(id));
    }

    Report report_;
    bool lookForFiles_;
    std::filesystem::path folder_;
    Scene scene_;
    std::vector<Entry> entries_;
    std::map<std::string, int, std::less<>> cueLines_; // line of each name's definition
    std::map<int, int> sourceLines_;                   // line of each id's definition
    std::map<int, int> emitterLines_;
    bool unsureSources_ = false; // the set of ids is incomplete, as some could not be read
    bool unsureEmitters_ = false;
    std::map<std::string, std::string> fileProblems_;
};

std::optional<Scene> parse(
    std::string_view text, const std::string& path, bool lookForFiles,
    std::vector<Problem>& problems) {
    std::vector<Problem> found;
    std::optional<Scene> scene;
    if (const std::optional<JsonTree> tree = parseJson(text, path, found)) {
        scene = SceneReader(path, lookForFiles, found).read(tree->root);
    }
    std::stable_sort(found.begin(), found.end(), [](const Problem& a, const Problem& b) {
        return a.line < b.line;
    });
    if (found.size() >= kMaxProblems) {
        found.resize(kMaxProblems - 1);
        found.push_back(
            {path, 0, "", "too many mistakes; correct the ones above to see the others"});
    }
    if (!found.empty()) {
        scene.reset();
    }
    problems.insert(problems.end(), found.begin(), found.end());
    return scene;
}

/// The reason why a path is not a regular file, or an empty text.
std::string fileProblem(const std::string& path, const char* expected) {
    const std::string fault = Orvel::detail::pathProblem(path);
    return fault.empty() ? fault
                         : std::string("expected ") + expected + ", but \"" + path + '"' + fault;
}

} // namespace

std::string Problem::str() const {
    std::string result = file;
    if (line > 0) {
        result += ':' + std::to_string(line);
    }
    if (column > 0) {
        result += ':' + std::to_string(column);
    }
    if (!field.empty()) {
        result += ": " + field;
    }
    return visible(result + ": " + text);
}

std::string soundFileProblem(const std::string& path) {
    return fileProblem(path, "a sound file");
}

std::optional<Scene>
parseScene(std::string_view text, const std::string& path, std::vector<Problem>& problems) {
    return parse(text, path, false, problems);
}

std::optional<Scene> readScene(const std::string& path, std::vector<Problem>& problems) {
    if (std::string text = fileProblem(path, "a scene file"); !text.empty()) {
        problems.push_back({path, 0, "", std::move(text)});
        return std::nullopt;
    }
    std::ifstream file(path, std::ios::binary);
    return readScene(file, path, problems);
}

std::optional<Scene>
readScene(std::istream& in, const std::string& name, std::vector<Problem>& problems) {
    std::string text;
    std::vector<char> block(std::size_t{1} << 16U);
    while (in && text.size() <= kMaxSceneBytes) {
        in.read(block.data(), static_cast<std::streamsize>(block.size()));
        text.append(block.data(), static_cast<std::size_t>(in.gcount()));
    }
    if (!in.eof() && text.size() <= kMaxSceneBytes) {
        problems.push_back({name, 0, "", "expected a scene file, but it cannot be read"});
        return std::nullopt;
    }
    if (text.size() > kMaxSceneBytes) {
        problems.push_back({name, 0, "", "expected a scene of at most 64 MiB, found a larger one"});
        return std::nullopt;
    }
    return parse(text, name, true, problems);
}

} // namespace Show
