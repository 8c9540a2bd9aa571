#include <Show/scene/ObjectReader.h>

#include <Show/detail/DidYouMean.h>
#include <Show/scene/YawPitchRoll.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <map>
#include <utility>

namespace Show {

namespace {

using State = Orvel::WorldPart::State;

std::string idWords() {
    return "a whole number from 1 to " + std::to_string(kMaxId);
}

} // namespace

std::string inQuotes(std::string_view text) {
    std::string result = "\"";
    result += printable(text);
    return result += '"';
}

std::string listed(std::span<const char* const> words) {
    std::string text;
    for (const char* word : words) {
        text += (text.empty() ? "" : ", ") + inQuotes(word);
    }
    return text;
}

Report::Report(std::string file, std::vector<Problem>& problems)
    : file_(std::move(file)), problems_(problems) {}

void Report::add(int line, std::string field, std::string text) {
    if (problems_.size() < kMaxProblems) {
        problems_.push_back({file_, line, std::move(field), std::move(text)});
    }
}

void Report::expected(const JsonValue& value, const JsonPlace& place, std::string_view what) {
    if (value.kind != JsonKind::Unreadable) {
        std::string text = "expected ";
        text += what;
        add(value.line, place.str(), text + ", found " + value.describe());
    }
}

void Report::idTooLarge(const JsonValue& value, const JsonPlace& place) {
    if (++largeIds_ == 1) {
        firstLargeId_ = {
            file_, value.line, place.str(),
            "expected " + idWords() + ", found " + value.describe()};
    }
}

void Report::finish() {
    if (firstLargeId_) {
        if (largeIds_ > 1) {
            firstLargeId_->text += " and " + std::to_string(largeIds_ - 1) + " more above it";
        }
        add(firstLargeId_->line, firstLargeId_->field, firstLargeId_->text);
    }
}

ObjectReader::ObjectReader(
    Report& report, const JsonValue& value, const JsonPlace& place, Keys known)
    : report_(report), value_(value), place_(place) {
    if (value.kind != JsonKind::Object) {
        report.expected(value, place, "an object");
        return;
    }
    for (const JsonValue& member : value.items) {
        if (std::find(known.begin(), known.end(), member.key) == known.end()) {
            reportUnknown(member, known);
        }
    }
}

Where ObjectReader::where(const char* key) const {
    const JsonValue* member = find(key);
    return {(member == nullptr ? value_ : *member).line, place(key).str()};
}

void ObjectReader::expected(const char* key, std::string_view what) const {
    report_.expected(*find(key), place(key), what);
}

void ObjectReader::require(const char* key, const char* what) const {
    if (value_.kind == JsonKind::Object && find(key) == nullptr) {
        report_.add(
            value_.line, place_.str(),
            "expected the key " + inQuotes(key) + " with " + what + ", found no such key");
    }
}

std::optional<double> ObjectReader::number(const char* key, const Range& range) const {
    const JsonValue* member = find(key);
    if (member == nullptr) {
        return std::nullopt;
    }
    const double number = member->number;
    if (member->kind != JsonKind::Number || number < range.low || number > range.high ||
        (number == range.low && !range.lowIncluded)) {
        expected(key, range.words);
        return std::nullopt;
    }
    return number;
}

std::optional<float> ObjectReader::real(const char* key, const Range& range) const {
    const std::optional<double> value = number(key, range);
    if (!value) {
        return std::nullopt;
    }
    const auto narrow = static_cast<float>(*value);
    return !range.lowIncluded && narrow <= 0.0F ? FLT_MIN : narrow;
}

std::optional<bool> ObjectReader::flag(const char* key) const {
    const JsonValue* member = find(key);
    if (member == nullptr) {
        return std::nullopt;
    }
    if (member->kind != JsonKind::Bool) {
        expected(key, "true or false");
        return std::nullopt;
    }
    return member->yes;
}

bool ObjectReader::mark(const char* key) const {
    const JsonValue* member = find(key);
    if (member == nullptr) {
        return false;
    }
    if (member->kind != JsonKind::Bool || !member->yes) {
        expected(key, "true");
        return false;
    }
    return true;
}

std::optional<int> ObjectReader::id(const char* key) const {
    const JsonValue* member = find(key);
    if (member == nullptr) {
        return std::nullopt;
    }
    if (member->kind != JsonKind::Number || member->number < 1.0 ||
        member->number != std::floor(member->number)) {
        expected(key, idWords());
        return std::nullopt;
    }
    if (member->number > kMaxId) {
        report_.idTooLarge(*member, place(key));
        return std::nullopt;
    }
    return static_cast<int>(member->number);
}

std::optional<std::string> ObjectReader::text(const char* key, const char* what) const {
    const JsonValue* member = find(key);
    if (member == nullptr) {
        return std::nullopt;
    }
    if (member->kind != JsonKind::Text || !isPlain(member->text)) {
        expected(key, what);
        return std::nullopt;
    }
    return std::string(member->text);
}

template <std::size_t size>
std::optional<std::array<float, size>>
ObjectReader::reals(const char* key, const char* what) const {
    const JsonValue* member = find(key);
    if (member == nullptr) {
        return std::nullopt;
    }
    if (member->kind != JsonKind::Array || member->items.size() != size) {
        expected(key, what);
        return std::nullopt;
    }
    std::array<float, size> result{};
    bool good = true;
    const JsonPlace at = place(key);
    for (std::size_t i = 0; i < size; ++i) {
        const JsonValue& item = member->items[i];
        if (item.kind != JsonKind::Number || std::abs(item.number) > double{FLT_MAX}) {
            report_.expected(item, {&at, {}, i}, "a number");
            good = false;
        } else {
            result[i] = static_cast<float>(item.number);
        }
    }
    return good ? std::optional(result) : std::nullopt;
}

std::optional<Orvel::Vec3f> ObjectReader::position() const {
    const auto v = reals<3>("position", "a position [x, y, z]");
    return v ? std::optional(Orvel::Vec3f{(*v)[0], (*v)[1], (*v)[2]}) : std::nullopt;
}

std::optional<Orvel::Quaternion> ObjectReader::rotation() const {
    if (find("ypr") != nullptr) {
        if (find("rotation") != nullptr) {
            expected("ypr", R"(only one of "rotation" and "ypr")");
            return std::nullopt;
        }
        const auto v = reals<3>("ypr", "angles in degrees [yaw, pitch, roll]");
        return v ? std::optional(fromYawPitchRoll((*v)[0], (*v)[1], (*v)[2])) : std::nullopt;
    }
    constexpr const char* kWords = "a quaternion [x, y, z, w] of length 1";
    const auto v = reals<4>("rotation", kWords);
    if (!v) {
        return std::nullopt;
    }
    double square = 0.0;
    for (const float part : *v) {
        square += static_cast<double>(part) * static_cast<double>(part);
    }
    const double length = std::sqrt(square);
    constexpr double kTolerance = 1e-3;
    if (std::abs(length - 1.0) > kTolerance) {
        const JsonValue& member = *find("rotation");
        report_.add(
            member.line, place("rotation").str(),
            std::string("expected ") + kWords + ", found one of length " +
                printable(std::round(length * 1e4) / 1e4));
        return std::nullopt;
    }
    const auto unit = [&](std::size_t i) {
        return static_cast<float>(static_cast<double>((*v)[i]) / length);
    };
    return Orvel::Quaternion{unit(0), unit(1), unit(2), unit(3)};
}

std::optional<State> ObjectReader::state(bool initial) const {
    const JsonValue* member = find("state");
    if (member == nullptr) {
        return std::nullopt;
    }
    static const std::map<std::string_view, State> kStates{
        {"play", State::PLAY},
        {"pause", State::PAUSE},
        {"stop", State::STOP},
        {"none", State::NONE}};
    const auto found = member->kind == JsonKind::Text ? kStates.find(member->text) : kStates.end();
    if (found == kStates.end() || (found->second == State::NONE && !initial)) {
        expected(
            "state",
            initial ? R"("play", "pause", "stop" or "none")" : R"("play", "pause" or "stop")");
        return std::nullopt;
    }
    return found->second;
}

bool ObjectReader::isPlain(std::string_view text) {
    return !text.empty() &&
           std::none_of(text.begin(), text.end(), [](char c) { return c >= 0 && c < ' '; });
}

void ObjectReader::reportUnknown(const JsonValue& member, Keys known) const {
    std::string text = "expected one of the keys " + listed(known) + ", found " +
                       inQuotes(member.key) + didYouMean(member.key, known);
    report_.add(member.line, place(member.key).str(), std::move(text));
}

} // namespace Show
