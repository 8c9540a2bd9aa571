#pragma once

#include <Corvid/Event.h>
#include <Corvid/EventType.h>

#include <tuple>
#include <type_traits>

namespace Orvel {

/// Base of the event class `Concrete`, whose fields follow those of `Base`. The class names its
/// fields once, in wire order,
///
///     static auto fields(auto& event) { return std::tie(event.gain, event.labels); }
///
/// from which encoding, decoding, comparing and printing follow. All of it is inline, so the
/// library exports none of it.
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
        if constexpr (std::is_same_v<Base, Corvid::Event>) {
            this->getHeader();
        } else {
            Base::getFields();
        }
        std::apply(
            [this](auto&... field) { this->getEach(field...); },
            Concrete::fields(static_cast<Concrete&>(*this)));
    }
    [[nodiscard]] const Corvid::EventType* type() const override { return &Concrete::_type; }

    /// Creates an event with default values, owned by the caller.
    static Corvid::Event* create() { return new Concrete; }
};

} // namespace Orvel
