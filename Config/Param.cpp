#include <Config/Param.h>

#include <algorithm>
#include <charconv>
#include <optional>
#include <utility>

namespace Config {

namespace {

template <class Value>
std::optional<Value> parse(std::string_view text, long least, long most) {
    Value number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool fits =
        number >= static_cast<Value>(least) && number <= static_cast<Value>(most); // not NaN
    if (error != std::errc() || end != text.data() + text.size() || !fits) {
        return std::nullopt;
    }
    return number;
}

} // namespace

std::string valuesOf(const Param& param) {
    switch (param.type) {
    case Param::Type::Flag:
        return "yes or no";
    case Param::Type::Number:
    case Param::Type::Real:
        return "a number from " + std::to_string(param.least) + " to " + std::to_string(param.most);
    case Param::Type::List:
        return "a list";
    case Param::Type::Text:
        break;
    }
    return "a text";
}

ParamReader::ParamReader(const ParamBag& bag, std::span<const Param> table, Report report)
    : bag_(bag), table_(table), report_(std::move(report)) {}

bool ParamReader::flag(const char* name) const {
    const Param* param = find(name);
    if (param == nullptr) {
        return false;
    }
    const bool usual = Base::string2Value(param->defaultValue, false);
    const char* given = bag_.getParam(name, nullptr);
    const bool value = Base::string2Value(given, usual);
    // A text that is neither yes nor no gives the default, whichever it is.
    if (given != nullptr && value != Base::string2Value(given, !usual)) {
        refuse(name, given, valuesOf(*param) + "; using " + param->defaultValue);
    }
    return value;
}

template <class Value>
Value ParamReader::read(const char* name) const {
    const Param* param = find(name);
    if (param == nullptr) {
        return 0;
    }
    if (const char* given = bag_.getParam(name, nullptr)) {
        if (const auto number = parse<Value>(given, param->least, param->most)) {
            return *number;
        }
        refuse(name, given, valuesOf(*param) + "; using " + param->defaultValue);
    }
    return parse<Value>(param->defaultValue, param->least, param->most)
        .value_or(static_cast<Value>(param->least));
}

long ParamReader::number(const char* name) const {
    return read<long>(name);
}

double ParamReader::real(const char* name) const {
    return read<double>(name);
}

std::string ParamReader::text(const char* name) const {
    const Param* param = find(name);
    return param == nullptr ? "" : bag_.getParam(name, param->defaultValue);
}

std::vector<std::string> ParamReader::list(const char* name) const {
    return splitList(text(name));
}

bool ParamReader::isSet(const char* name) const {
    return bag_.getParam(name, nullptr) != nullptr;
}

void ParamReader::refuse(
    const char* name, const std::string& value, const std::string& expected) const {
    if (const Param* param = find(name); param != nullptr && report_) {
        report_(*param, std::string(name) + "=\"" + value + "\" is not used: expected " + expected);
    }
}

const Param* ParamReader::find(const char* name) const {
    const auto found = std::ranges::find_if(
        table_, [wanted = std::string_view(name)](const Param& row) { return wanted == row.name; });
    return found == table_.end() ? nullptr : &*found;
}

std::vector<std::string> splitList(std::string_view text) {
    constexpr const char* kWhiteSpace = " \t\r\n";
    std::vector<std::string> items;
    while (!text.empty()) {
        const auto comma = std::min(text.find(','), text.size());
        const std::string_view item = text.substr(0, comma);
        const auto first = item.find_first_not_of(kWhiteSpace);
        if (first != std::string_view::npos) {
            items.emplace_back(item.substr(first, item.find_last_not_of(kWhiteSpace) + 1 - first));
        }
        text.remove_prefix(std::min(comma + 1, text.size()));
    }
    return items;
}

} // namespace Config
