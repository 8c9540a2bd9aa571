#pragma once

#include <Corvid/Event.h>
#include <Corvid/EventType.h>

#include <tuple>

namespace Orvel {

/// The base of the class `Concrete` of events, whose fields follow those of `Base`. The class names
/// its fields once, in the order in which they travel,
///
///     static auto fields(auto& event) { return std::tie(event.gain, event.labels); }
///
/// and writing and reading them follow from that, as do comparing and printing. All of it is
/// compiled into its user, so the library exports none of it.
template <class Concrete, class Base>
class EventOf : public Base {
public:
    void addFields() override {
        Base::addFields();
        std::apply(
            [this](const auto&... field) { this->addEach(field...); },
            Concrete::fields(static_cast<const Concrete&>(*this)));
    }
    void getFields() override {
        Base::getFields();
        std::apply(
            [this](auto&... field) { this->getEach(field...); },
            Concrete::fields(static_cast<Concrete&>(*this)));
    }
    [[nodiscard]] const Corvid::EventType* type() const override { return &Concrete::_type; }

    /// A new one with the defaults, owned by the caller.
    static Corvid::Event* create() { return new Concrete; }
};

} // namespace Orvel
