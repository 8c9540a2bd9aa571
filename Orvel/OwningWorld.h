#pragma once

#include <Orvel/World.h>

namespace Orvel {

/// A world, or a derived class such as Server, that deletes its parts and then its back ends when
/// it is destroyed. Overrides of derived classes are not called any more at that time; a class that
/// needs them must clear itself in its own destructor.
template <class Base = World>
class OwningWorld : public Base {
public:
    using Base::Base;
    OwningWorld() = default;
    OwningWorld(const OwningWorld&) = delete;
    OwningWorld& operator=(const OwningWorld&) = delete;
    ~OwningWorld() override {
        if constexpr (requires(Base & base) { base.stop(); }) {
            Base::stop(); // the thread of a server
        }
        Base::clearWorld();
        Base::deleteAllBackends();
    }
};

} // namespace Orvel
