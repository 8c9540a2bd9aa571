#pragma once

#include <Orvel/CreateEmitterEvent.h>
#include <Orvel/DriverEvent.h>
#include <Orvel/EmitterConnectionEvent.h>
#include <Orvel/EmitterHullEvent.h>
#include <Orvel/EmitterParamEvent.h>
#include <Orvel/SourceDataEvent.h>
#include <Orvel/SourceDurationEvent.h>
#include <Orvel/SourceParamEvent.h>
#include <Orvel/TransformEvent.h>

#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace Orvel::Test {

inline void print(std::ostream& out, const std::vector<std::string>& texts) {
    out << testing::PrintToString(texts);
}
inline void print(std::ostream& out, const std::vector<unsigned char>& bytes) {
    out << bytes.size() << ' ' << std::string(bytes.begin(), bytes.end());
}
void print(std::ostream& out, const auto& value) {
    out << value;
}

/// True, with the event's own values in the order of its fields, if it is of that class.
template <class Concrete>
bool print(std::ostream& out, const Corvid::Event& event) {
    const auto* concrete = dynamic_cast<const Concrete*>(&event);
    if (concrete != nullptr) {
        auto one = [&out, separator = ""](const auto& field) mutable {
            out << std::exchange(separator, " ");
            print(out, field);
        };
        std::apply(
            [&one](const auto&... field) { (one(field), ...); }, Concrete::fields(*concrete));
    }
    return concrete != nullptr;
}

template <class... Events>
std::string valuesOfOneOf(const Corvid::Event& event) {
    std::ostringstream text;
    (void)(print<Events>(text, event) || ...);
    return text.str();
}

/// An event's own values, in the order of its fields.
inline std::string values(const Corvid::Event& event) {
    return valuesOfOneOf<
        TransformEvent, CreateEmitterEvent, EmitterConnectionEvent, EmitterHullEvent,
        EmitterParamEvent, SourceParamEvent, SourceDataEvent, SourceDurationEvent, DriverEvent>(
        event);
}

} // namespace Orvel::Test
