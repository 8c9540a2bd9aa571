#include <Show/osc/OscScene.h>

#include <Show/osc/OscPath.h>

#include <algorithm>
#include <type_traits>
#include <utility>

namespace Show {

namespace {

// The families of paths in keys.
constexpr std::uint64_t kAdmFamily = 0;
constexpr std::uint64_t kEmitterFamily = 1;
constexpr std::uint64_t kSourceFamily = 2;
constexpr std::uint64_t kWorldFamilies = 3;

constexpr const char* kUnknownPath = "unknown path";

template <class Part>
bool takesCount(const OscEntry<Part>& entry, std::size_t count) {
    return std::ranges::find(entry.counts, count) != entry.counts.end();
}

} // namespace

OscScene::OscScene(Orvel::World& world, float scale, OscEdits::Apply apply, AdmPaths::Change change)
    : world_(world), edits_(world, std::move(apply)),
      adm_(
          edits_, scale,
          [this, change = std::move(change)](const std::string& name) {
              if (cues_ != nullptr) {
                  cues_->cue(name);
              }
              if (change) {
                  change(name);
              }
          }),
      own_(edits_, adm_) {
    control(nullptr);
}

void OscScene::control(const std::shared_ptr<Transport>& playback) {
    worldFamilies_ = {&adm_.listener(), &adm_.scene(), &own_.listener(), &own_.world()};
    cues_.reset();
    if (playback != nullptr) {
        cues_ = std::make_unique<CuePaths>(playback);
        worldFamilies_.insert(worldFamilies_.end(), {&cues_->playback(), &cues_->cues()});
    }
}

std::string OscScene::take(std::span<const std::byte> bytes, Answers& answers) {
    OscMessage message;
    if (std::string fault = message.parse(bytes); !fault.empty()) {
        return fault;
    }
    const std::string wrong = dispatch(message, answers);
    return wrong.empty() ? wrong : message.subject() + wrong;
}

std::string OscScene::dispatch(const OscMessage& message, Answers& answers) {
    if (fits(message.words, own_.emitters().prefix, 2) && message.words.back() == "create") {
        return create(message);
    }
    const std::size_t before = answers.size();
    Outcome outcome;
    takeParts(adm_.objects(), world_.emitters(), "emitter", message, answers, outcome);
    takeParts(own_.emitters(), world_.emitters(), "emitter", message, answers, outcome);
    takeParts(own_.sources(), world_.sources(), "source", message, answers, outcome);
    for (const auto* family : worldFamilies_) {
        if (fits(message.words, family->prefix, 1)) {
            touch(PartKind::World, 0);
            Outcome one = take(*family, 0, world_, message, answers);
            outcome.taken = outcome.taken || one.taken;
            if (outcome.fault.empty() || one.fault != kUnknownPath) {
                outcome.fault = std::move(one.fault);
            }
        }
    }
    if (answers.size() - before > kMaxAnswers) {
        answers.resize(before + kMaxAnswers);
        return "has more than " + std::to_string(kMaxAnswers) +
               " answers; query fewer values at a time";
    }
    return outcome.taken ? "" : outcome.fault.empty() ? kUnknownPath : outcome.fault;
}

template <class Part>
OscScene::Outcome OscScene::take(
    const OscFamily<Part>& family, int id, Part& part, const OscMessage& message,
    Answers& answers) {
    const std::string_view name = message.words.back();
    const bool pattern = isPattern(name);
    Outcome outcome;
    std::string expected;
    for (const OscEntry<Part>& entry : family.entries) {
        // A pattern names no commands, since "destroy" is one.
        if (pattern ? !entry.read || !fits(name, entry.name) : entry.name != name) {
            continue;
        }
        if (entry.read && message.isQuery()) {
            if (answers.size() <= kMaxAnswers) {
                answers.push_back({fullPath(family.prefix, id, entry.name), entry.read(part)});
            }
            outcome.taken = true;
        } else if (entry.write) {
            outcome.fault = "expected a text";
            if (message.texts.size() == 1 && message.numbers.empty()) {
                const OscExpected fault = entry.write(part, message.texts[0]);
                outcome.taken = outcome.taken || fault == nullptr;
                outcome.fault = fault == nullptr ? "" : fault;
            }
        } else if (entry.counts.empty()) {
            outcome.fault = "cannot be set";
        } else if (!message.texts.empty()) {
            outcome.fault = "expected numbers, found a text";
        } else if (takesCount(entry, message.numbers.size())) {
            const OscExpected fault = entry.take(part, message.numbers);
            if (!pattern) { // the part may be gone
                return {fault == nullptr, fault == nullptr ? "" : fault};
            }
            outcome.taken = outcome.taken || fault == nullptr;
            outcome.fault = fault == nullptr ? "" : fault;
        } else {
            for (const std::size_t count : entry.counts) {
                expected += (expected.empty() ? "" : " or ") + std::to_string(count);
            }
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
    const OscFamily<Part>& family, const std::map<int, Part*>& parts, const char* kind,
    const OscMessage& message, Answers& answers, Outcome& outcome) {
    const auto& words = message.words;
    if (!fits(words, family.prefix, 2)) {
        return;
    }
    const std::string_view word = words[words.size() - 2];
    constexpr PartKind kKind =
        std::is_same_v<Part, Orvel::Emitter> ? PartKind::Emitter : PartKind::Source;
    const auto add = [&](int id, Part& part) {
        touch(kKind, id);
        Outcome one = take(family, id, part, message, answers);
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
        if (part == parts.end() && &family == &adm_.objects()) {
            adm_.forget(id);
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

std::string OscScene::appear(int id, const OscMessage& message) {
    const auto valid = [&](const OscEntry<Orvel::Emitter>& entry) {
        return entry.name == message.words.back() &&
               (entry.write ? message.numbers.empty() && message.texts.size() == 1
                            : message.texts.empty() && takesCount(entry, message.numbers.size()));
    };
    if (message.isQuery() || std::ranges::none_of(adm_.objects().entries, valid)) {
        return {};
    }
    touch(PartKind::Emitter, id);
    return adm_.appear(id);
}

std::string OscScene::create(const OscMessage& message) {
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
    edits_.create(id, message.texts);
    return {};
}

void OscScene::setHooks(OrvelPaths::Subscribe subscribe, Touch touch) {
    own_.setSubscribe(std::move(subscribe));
    touch_ = std::move(touch);
}

void OscScene::touch(PartKind kind, int id) const {
    if (touch_) {
        touch_(kind, id);
    }
}

template <class Part>
void OscScene::visit(
    const OscFamily<Part>& family, std::uint64_t number, int id, Part& part, const Visit& visit) {
    for (std::size_t i = 0; i < family.entries.size(); ++i) {
        if (family.entries[i].sent) {
            const auto middle = static_cast<std::uint64_t>(id) << 8U;
            visit(number << 40U | middle | i, family.entries[i].read(part));
        }
    }
}

void OscScene::visit(PartKind kind, int id, const Visit& visit) {
    if (kind == PartKind::World) {
        std::uint64_t number = kWorldFamilies;
        for (const auto* family : worldFamilies_) {
            this->visit(*family, number++, 0, world_, visit);
        }
    } else if (kind == PartKind::Source) {
        if (Orvel::Source* source = world_.getSource(id)) {
            this->visit(own_.sources(), kSourceFamily, id, *source, visit);
        }
    } else if (Orvel::Emitter* emitter = world_.getEmitter(id)) {
        this->visit(adm_.objects(), kAdmFamily, id, *emitter, visit);
        this->visit(own_.emitters(), kEmitterFamily, id, *emitter, visit);
    }
}

void OscScene::visit(const Visit& visit) {
    for (const auto& [id, emitter] : world_.emitters()) {
        this->visit(adm_.objects(), kAdmFamily, id, *emitter, visit);
        this->visit(own_.emitters(), kEmitterFamily, id, *emitter, visit);
    }
    for (const auto& [id, source] : world_.sources()) {
        this->visit(own_.sources(), kSourceFamily, id, *source, visit);
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
        return path(own_.sources());
    }
    if (number < kWorldFamilies) {
        return path(number == kAdmFamily ? adm_.objects() : own_.emitters());
    }
    return path(*worldFamilies_[number - kWorldFamilies]);
}

template <class Part>
void OscScene::describe(
    const OscFamily<Part>& family, int id, Part& part, const std::string& below,
    std::vector<OscMethod>& methods) {
    for (const OscEntry<Part>& entry : family.entries) {
        OscMethod method;
        method.path = fullPath(family.prefix, id, entry.name);
        if (method.path != below && !method.path.starts_with(below + "/")) {
            continue;
        }
        method.meaning = entry.meaning;
        method.ranges = entry.ranges;
        method.readable = static_cast<bool>(entry.read);
        method.writable = entry.write || !entry.counts.empty();
        if (method.readable) {
            method.values = entry.read(part);
            method.types = method.values.type == 's'
                               ? "s"
                               : std::string(method.values.count, method.values.type);
        } else {
            method.types = entry.counts[0] == 0 ? "N" : std::string(entry.counts[0], 'f');
        }
        methods.push_back(std::move(method));
    }
}

template <class Part>
bool OscScene::describeNext(
    const OscFamily<Part>& family, const std::map<int, Part*>& parts, OscCursor& cursor,
    const std::string& below, std::vector<OscMethod>& methods) {
    auto part = parts.upper_bound(cursor.id);
    if (below.size() >= family.prefix.size() && below.starts_with(family.prefix)) {
        int only = 0;
        const std::string_view rest = std::string_view(below).substr(family.prefix.size());
        const bool valid = toId(rest.substr(0, rest.find('/')), only) && only > cursor.id;
        part = valid ? parts.find(only) : parts.end();
    }
    if (part == parts.end()) {
        return false;
    }
    cursor.id = part->first;
    describe(family, part->first, *part->second, below, methods);
    return true;
}

bool OscScene::describe(
    OscCursor& cursor, const std::string& below, std::vector<OscMethod>& methods) {
    // Families of the same parent are neighbours.
    const auto isAdm = [](const auto* family) { return family->prefix.starts_with("/adm/"); };
    const auto own = std::ranges::partition_point(worldFamilies_, isAdm);
    const auto world = [&](auto begin, auto end) {
        for (auto family = begin; family != end; ++family) {
            describe(**family, 0, world_, below, methods);
        }
    };
    for (;; ++cursor.family, cursor.id = 0) {
        const std::size_t before = methods.size();
        switch (cursor.family) {
        case 0:
            if (describeNext(adm_.objects(), world_.emitters(), cursor, below, methods)) {
                return true;
            }
            break;
        case 1:
            world(worldFamilies_.begin(), own);
            break;
        case 2:
            if (describeNext(own_.emitters(), world_.emitters(), cursor, below, methods)) {
                return true;
            }
            break;
        case 3:
            if (describeNext(own_.sources(), world_.sources(), cursor, below, methods)) {
                return true;
            }
            break;
        case 4:
            world(own, worldFamilies_.end());
            break;
        default:
            return false;
        }
        if (methods.size() > before) {
            ++cursor.family;
            cursor.id = 0;
            return true;
        }
    }
}

bool OscScene::isEchoed(Key key) const {
    const auto number = key >> 40U;
    return number >= kWorldFamilies &&
           worldFamilies_[number - kWorldFamilies]->entries[key & 0xFFU].echoed;
}

} // namespace Show
