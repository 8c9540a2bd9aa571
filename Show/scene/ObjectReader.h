#pragma once

#include <Show/scene/JsonTree.h>
#include <Show/scene/Scene.h>
#include <Show/scene/SceneFile.h>

#include <array>
#include <cstddef>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Show {

/// Collects the problems of one file, up to a limit.
class Report {
public:
    Report(std::string file, std::vector<Problem>& problems);

    void add(int line, std::string field, std::string text);
    /// "expected WHAT, found VALUE".
    void expected(const JsonValue& value, const JsonPlace& place, std::string_view what);
    /// An id above kMaxId. finish() reports one problem for all of them.
    void idTooLarge(const JsonValue& value, const JsonPlace& place);
    void finish();

private:
    std::string file_;
    std::vector<Problem>& problems_;
    std::optional<Problem> firstLargeId_;
    std::size_t largeIds_ = 0;
};

/// The valid numbers of a key, and their description.
struct Range {
    double low;
    double high;
    bool lowIncluded;
    const char* words;
};

/// Reads the members of an object in a scene file. Each function returns nothing if the key is
/// missing, and nothing with a problem if its value is invalid. The arguments must outlive it.
class ObjectReader {
public:
    using Keys = std::initializer_list<const char*>;

    /// Reports every unknown key. A value that is not an object is reported and read as an empty
    /// one.
    ObjectReader(Report& report, const JsonValue& value, const JsonPlace& place, Keys known);

    [[nodiscard]] const JsonValue& value() const { return value_; }
    [[nodiscard]] const JsonValue* find(const char* key) const { return value_.find(key); }
    [[nodiscard]] JsonPlace place(std::string_view key) const { return {&place_, key}; }
    [[nodiscard]] Where where() const { return {value_.line, place_.str()}; }
    [[nodiscard]] Where where(const char* key) const;

    /// Reports the value of an existing key.
    void expected(const char* key, std::string_view what) const;
    /// Reports a required key if it is missing.
    void require(const char* key, const char* what) const;

    [[nodiscard]] std::optional<double> number(const char* key, const Range& range) const;
    /// The nearest float; values above 0 do not round to 0.
    [[nodiscard]] std::optional<float> real(const char* key, const Range& range) const;
    [[nodiscard]] std::optional<bool> flag(const char* key) const;
    /// Whether a key is present whose only valid value is true.
    bool mark(const char* key) const;
    [[nodiscard]] std::optional<int> id(const char* key) const;
    /// A text that satisfies isPlain().
    [[nodiscard]] std::optional<std::string> text(const char* key, const char* what) const;
    /// The members "position", "rotation" or "ypr" (a unit quaternion) and "state"; "none" is valid
    /// only as the initial state.
    [[nodiscard]] std::optional<Orvel::Vec3f> position() const;
    [[nodiscard]] std::optional<Orvel::Quaternion> rotation() const;
    [[nodiscard]] std::optional<Orvel::WorldPart::State> state(bool initial) const;

    /// Not empty, and without control characters.
    static bool isPlain(std::string_view text);

private:
    template <std::size_t size>
    std::optional<std::array<float, size>> reals(const char* key, const char* what) const;
    void reportUnknown(const JsonValue& member, Keys known) const;

    Report& report_;
    const JsonValue& value_;
    const JsonPlace& place_;
};

/// A text in quotes, printable in messages.
std::string inQuotes(std::string_view text);
/// Texts in quotes, separated by commas.
std::string listed(std::span<const char* const> words);

} // namespace Show
