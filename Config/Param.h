#pragma once

#include <Config/ParamBag.h>

#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <orvel_export.h>

namespace Config {

/// One parameter that a kind of back end takes: a row of the kind's table. Immutable.
struct Param {
    enum class Type {
        Flag,   ///< yes or no, see Base::string2Value()
        Number, ///< a whole number from `least` to `most`
        Real,   ///< a number from `least` to `most`
        Text,   ///< any text
        List    ///< items separated by commas; white space around an item is dropped
    };

    const char* name;
    Type type;
    const char* defaultValue; ///< as text: "yes", "44100"; empty for an empty text or list
    const char* help;         ///< a phrase for people, without a full stop
    long least = 0;           ///< for Type::Number and Type::Real
    long most = 0;            ///< for Type::Number and Type::Real
};

/// The values that a parameter takes, for people: "yes or no", "a number from 0 to 255".
[[nodiscard]] ORVEL_EXPORT std::string valuesOf(const Param& param);

/// Reads the parameters of one back end as the table of its kind describes them. A value that
/// cannot be used is reported, and the default is used instead.
///
/// The bag and the table must outlive it. Confined to one thread at a time. A name that is not in
/// the table is a mistake of the caller, who gets an empty value.
class ORVEL_EXPORT ParamReader {
public:
    /// Takes a sentence about a value that is not used, without a full stop.
    using Report = std::function<void(const Param& param, const std::string& sentence)>;

    ParamReader(const ParamBag& bag, std::span<const Param> table, Report report);

    [[nodiscard]] bool flag(const char* name) const;
    [[nodiscard]] long number(const char* name) const;
    [[nodiscard]] double real(const char* name) const;
    [[nodiscard]] std::string text(const char* name) const;
    [[nodiscard]] std::vector<std::string> list(const char* name) const;

    /// Whether the parameter is set, to whatever value.
    [[nodiscard]] bool isSet(const char* name) const;
    /// Reports that a value, or an item of a list, is not used.
    void refuse(const char* name, const std::string& value, const std::string& expected) const;

private:
    template <class Value>
    ORVEL_NO_EXPORT Value read(const char* name) const;
    [[nodiscard]] const Param* find(const char* name) const;

    const ParamBag& bag_;
    std::span<const Param> table_;
    Report report_;
};

/// The items of a list: separated by commas, without the white space around them and without empty
/// ones.
[[nodiscard]] ORVEL_EXPORT std::vector<std::string> splitList(std::string_view text);

} // namespace Config
