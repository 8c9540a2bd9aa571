#include <Show/desk/Desk.h>

#include <Show/monitor/JsonWriter.h>
#include <Show/player/Playable.h>

#include <Orvel/Emitter.h>
#include <Orvel/SceneEdits.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <ranges>

namespace Show {

namespace {

using Json = nlohmann::json;

constexpr std::size_t kMaxGestureBytes = 64;

/// A request that is not carried out.
struct DeskRefusal {
    int status;
    std::string text;
};

void require(bool good, const std::string& text) {
    if (!good) {
        throw DeskRefusal{400, text};
    }
}

template <std::size_t Size>
std::array<float, Size> vectorOf(const std::string& key, const Json& value, double most) {
    const std::string expected =
        key + ": expected an array of " + std::to_string(Size) + " numbers";
    require(value.is_array() && value.size() == Size, expected);
    std::array<float, Size> numbers = {};
    for (std::size_t i = 0; i < Size; ++i) {
        require(value[i].is_number() && std::abs(value[i].get<double>()) <= most, expected);
        numbers[i] = value[i].get<float>();
    }
    return numbers;
}

bool boolOf(const std::string& key, const Json& value) {
    require(value.is_boolean(), key + ": expected true or false");
    return value.get<bool>();
}

std::string textOf(const std::string& key, const Json& value) {
    require(value.is_string(), key + ": expected a text");
    return value.get<std::string>();
}

} // namespace

/// A request whose values have been checked. Ids are not.
struct Desk::Request {
    /// The values to set for one part.
    struct Change {
        std::optional<int> id;
        Override values;
        std::optional<bool> mute;
        std::optional<bool> solo;
        std::optional<State> state;
        bool release = false; ///< before the values are set
    };
    std::vector<Change> changes;
    bool releaseAll = false;
    bool undo = false;
    bool redo = false;
    std::optional<std::string> save; ///< the name of a new file, or empty
    bool go = false;                 ///< at most one of this and the next three
    std::optional<std::string> cue;
    std::optional<double> seek; ///< seconds
    std::optional<bool> pause;
    std::string gesture; ///< of which this is a part; empty: a step of its own
};

Desk::Desk(Orvel::World& world, Playback& playback, const ShowFile& file)
    : world_(world), transport_(playback.transport()), file_(file),
      overrides_(playback.overrides()) {
    if (const LoadedScene* scene = file.isGood() ? file.playable()->scene() : nullptr) {
        disk_.emplace(scene->scene);
    }
}

Desk::Request Desk::read(std::string_view text) {
    const Json json = Json::parse(text, nullptr, false);
    require(json.is_object(), "expected an object in JSON");
    const auto readState = [](const Json& value) {
        if (value == "play") {
            return State::PLAY;
        }
        require(value == "pause" || value == "stop", "state: expected play, pause or stop");
        return value == "pause" ? State::PAUSE : State::STOP;
    };
    const auto readChange = [&](const Json& item) {
        require(item.is_object(), "changes: expected objects");
        Request::Change change;
        for (const auto& [key, value] : item.items()) {
            if (key == "emitter") {
                require(
                    value.is_number_integer() && value.get<std::int64_t>() > 0 &&
                        value.get<std::int64_t>() <= std::numeric_limits<int>::max(),
                    "emitter: expected an id");
                change.id = value.get<int>();
            } else if (key == "listener") {
                require(value == true, "listener: expected true");
                change.id = Overrides::kListener;
            } else if (key == "position") {
                const auto [x, y, z] = vectorOf<3>(key, value, kMaxCoordinate);
                change.values.position = {x, y, z};
            } else if (key == "rotation") {
                const auto [x, y, z, w] = vectorOf<4>(key, value, 1.001);
                const float length = std::sqrt(x * x + y * y + z * z + w * w);
                require(
                    std::abs(length - 1.0F) < 0.001F,
                    "rotation: expected a quaternion of length 1");
                change.values.rotation = {x / length, y / length, z / length, w / length};
            } else if (key == "gain") {
                require(
                    value.is_number() && value.get<double>() >= 0.0 &&
                        value.get<double>() <= kMaxGain,
                    "gain: expected a number from 0 to 16");
                change.values.gain = value.get<float>();
            } else if (key == "mute") {
                change.mute = boolOf(key, value);
            } else if (key == "solo") {
                change.solo = boolOf(key, value);
            } else if (key == "state") {
                change.state = readState(value);
            } else if (key == "release") {
                change.release = boolOf(key, value);
            } else {
                require(false, "changes: a key that is not known");
            }
        }
        require(change.id.has_value(), "changes: expected \"emitter\" or \"listener\" in each");
        require(
            *change.id != Overrides::kListener ||
                !(change.values.gain || change.mute || change.solo || change.state),
            "changes: a listener has only position and rotation");
        return change;
    };
    Request request;
    for (const auto& [key, value] : json.items()) {
        if (key == "changes") {
            require(value.is_array(), "changes: expected an array");
            for (const Json& item : value) {
                request.changes.push_back(readChange(item));
            }
        } else if (key == "gesture") {
            request.gesture = textOf(key, value);
            require(
                request.gesture.size() <= kMaxGestureBytes, "gesture: expected at most 64 bytes");
        } else if (key == "releaseAll") {
            request.releaseAll = boolOf(key, value);
        } else if (key == "undo") {
            request.undo = boolOf(key, value);
        } else if (key == "redo") {
            request.redo = boolOf(key, value);
        } else if (key == "save") {
            request.save = textOf(key, value);
        } else if (key == "go") {
            request.go = boolOf(key, value);
        } else if (key == "cue") {
            request.cue = textOf(key, value);
        } else if (key == "seek") {
            require(
                value.is_number() && value.get<double>() >= 0.0,
                "seek: expected a time in seconds, from 0");
            request.seek = value.get<double>();
        } else if (key == "pause") {
            request.pause = boolOf(key, value);
        } else {
            require(false, "a key that is not known");
        }
    }
    require(
        int{request.go} + int{request.cue.has_value()} + int{request.seek.has_value()} +
                int{request.pause.has_value()} <=
            1,
        "expected only one of go, cue, seek and pause");
    return request;
}

Desk::Answer Desk::take(std::string_view text) {
    try {
        carryOut(read(text));
        return {};
    } catch (const DeskRefusal& refusal) {
        return {refusal.status, refusal.text};
    }
}

Transport::Command Desk::commandOf(const Request& request) const {
    if (request.go) {
        if (!transport_->canGo()) {
            throw DeskRefusal{409, "there is no further cue"};
        }
        return [](Transport& transport) { transport.go(); };
    }
    if (request.cue) {
        if (std::ranges::find(transport_->cues(), *request.cue, &Cue::name) ==
            transport_->cues().end()) {
            throw DeskRefusal{404, "there is no such cue"};
        }
        return [name = *request.cue](Transport& transport) { transport.cue(name); };
    }
    if (request.seek) {
        return [to = *request.seek](Transport& transport) {
            transport.seek(std::min(to, transport.end()));
        };
    }
    if (request.pause) {
        return [paused = *request.pause](Transport& transport) { transport.pause(paused); };
    }
    return {};
}

void Desk::carryOut(const Request& request) {
    Transport::Command command = transport_ == nullptr ? Transport::Command() : commandOf(request);
    const bool changes = !request.changes.empty() || request.releaseAll;
    if (changes && overrides_ == nullptr) {
        throw DeskRefusal{409, "the parts of a capture cannot be changed"};
    }
    Step step;
    for (const Request::Change& change : request.changes) {
        const int id = *change.id;
        const Orvel::Emitter* emitter = world_.getEmitter(id);
        if (id != Overrides::kListener && emitter == nullptr) {
            throw DeskRefusal{404, "there is no emitter " + std::to_string(id) + " now"};
        }
        auto edit = std::ranges::find(step, id, &Edit::id);
        if (edit == step.end()) {
            const Override before = overrides_->get(id);
            edit = step.insert(edit, {id, before, before, {}, {}});
        }
        Override& after = edit->after;
        if (change.release) {
            after = {};
        }
        const auto set = [](auto& value, const auto& given) {
            if (given) {
                value = given;
            }
        };
        set(after.position, change.values.position);
        set(after.rotation, change.values.rotation);
        set(after.gain, change.values.gain);
        after.muted = change.mute.value_or(after.muted);
        after.solo = change.solo.value_or(after.solo);
        if (change.state) {
            edit->stateBefore = emitter->state();
            edit->stateAfter = change.state;
        }
    }
    if (request.releaseAll) {
        step.clear();
        for (const auto& [id, override] : overrides_->all()) {
            step.push_back({id, override, {}, {}, {}});
        }
    }
    if (command && !transport_->later(std::move(command))) {
        throw DeskRefusal{409, "the playback stands still"};
    }
    if (!step.empty()) {
        apply(step, true);
        remember(std::move(step), request.gesture);
    }
    if ((request.undo && !undo()) || (request.redo && !redo())) {
        throw DeskRefusal{409, "there is nothing to undo or redo"};
    }
    if (request.save) {
        const std::map<int, Override> values = savable();
        const std::string error =
            disk_ ? disk_->save(*request.save, values) : std::string("a capture cannot be saved");
        if (!error.empty()) {
            throw DeskRefusal{409, error};
        }
        saved_ = values;
    }
}

void Desk::apply(const Step& step, bool forward) {
    for (const Edit& edit : step) {
        overrides_->set(edit.id, forward ? edit.after : edit.before);
    }
    for (const Edit& edit : step) {
        const std::optional<State> state = forward ? edit.stateAfter : edit.stateBefore;
        Orvel::Emitter* emitter = state ? world_.getEmitter(edit.id) : nullptr;
        if (emitter == nullptr) {
            continue;
        }
        if (forward && state == State::PLAY) {
            Orvel::restart(*emitter); // also a sound that has ended
        } else if (*state == State::NONE) {
            emitter->setState(State::STOP);
        } else if (*state != emitter->state()) {
            emitter->setState(*state);
        }
    }
}

void Desk::remember(Step step, const std::string& gesture) {
    undone_.clear();
    if (!gesture.empty() && gesture == gesture_ && !done_.empty()) {
        for (const Edit& edit : step) { // a later part of a drag replaces the earlier ones
            const auto found = std::ranges::find(done_.back(), edit.id, &Edit::id);
            if (found == done_.back().end()) {
                done_.back().push_back(edit);
            } else {
                found->after = edit.after;
            }
        }
        return;
    }
    gesture_ = gesture;
    done_.push_back(std::move(step));
    if (done_.size() > kMaxUndo) {
        done_.pop_front();
    }
}

bool Desk::undo() {
    if (done_.empty()) {
        return false;
    }
    gesture_.clear();
    undone_.push_back(std::move(done_.back()));
    done_.pop_back();
    apply(undone_.back(), false);
    return true;
}

bool Desk::redo() {
    if (undone_.empty()) {
        return false;
    }
    gesture_.clear();
    done_.push_back(std::move(undone_.back()));
    undone_.pop_back();
    apply(done_.back(), true);
    return true;
}

std::map<int, Override> Desk::savable() const {
    std::map<int, Override> values;
    if (overrides_ != nullptr) {
        for (auto& [id, override] : overrides_->all()) {
            const Override value{override.position, override.rotation, override.gain, false, false};
            if (!value.empty()) {
                values.emplace(id, value);
            }
        }
    }
    return values;
}

void Desk::write(std::string& out) const {
    JsonWriter json(out);
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    json.open('{').field("clock", std::chrono::duration<double>(now).count());
    json.field("file", disk_ ? disk_->name() : std::string());
    json.field("canChange", overrides_ != nullptr).field("undo", done_.size());
    json.field("redo", undone_.size()).field("unsaved", savable() != saved_);
    json.key("parts").open('[');
    const std::map<int, Override> all =
        overrides_ == nullptr ? std::map<int, Override>() : overrides_->all();
    for (const auto& [id, override] : all) {
        json.open('{').field("id", id).field("position", override.position.has_value());
        json.field("rotation", override.rotation.has_value());
        if (const Orvel::Emitter* emitter = world_.getEmitter(id); id != Overrides::kListener) {
            json.field("gain", override.gain.has_value());
            json.field("mute", override.muted).field("solo", override.solo);
            if (emitter != nullptr) {
                json.field("level", override.gain.value_or(overrides_->gain(*emitter)));
            }
        }
        json.close('}');
    }
    json.close(']');
    if (transport_ != nullptr) {
        const auto nameOrNull = [&json](std::string_view key, const Cue* cue) {
            cue == nullptr ? json.key(key).null() : json.field(key, cue->name);
        };
        json.field("state", nameOf(transport_->state()));
        json.field("time", transport_->position()).field("end", transport_->end());
        nameOrNull("cue", transport_->current());
        nameOrNull("next", transport_->next());
        json.field("canGo", transport_->canGo()).key("cues").open('[');
        for (const Cue& cue : transport_->cues()) {
            json.open('{').field("name", cue.name).field("at", cue.at).close('}');
        }
        json.close(']');
    }
    json.close('}');
}

} // namespace Show
