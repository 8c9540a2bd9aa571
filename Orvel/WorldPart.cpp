#include <Orvel/WorldPart.h>

#include <Orvel/detail/Report.h>

#include <utility>

namespace Orvel {

WorldPart::WorldPart(World& world, int id) : world_(world), id_(id) {}

WorldPart::WorldPart(const WorldPart& other) : world_(other.world_), id_(-1) {
    ORVEL_REPORT(
        Fatal, detail::about(Diagnostic::Code::Misuse), "Runing WorldPart copy constructor\n");
}

bool WorldPart::changeState(State state) noexcept {
    // Compared as stored, or a value out of range would never be equal.
    const auto stored = static_cast<std::int8_t>(state);
    if (stored == state_) {
        return false;
    }
    previousState_ = std::exchange(state_, stored);
    return true;
}

} // namespace Orvel
