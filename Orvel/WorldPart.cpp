#include <Orvel/WorldPart.h>

#include <Orvel/detail/Report.h>

namespace Orvel {

WorldPart::WorldPart(World& world, int id) : world_(world), id_(id) {}

WorldPart::WorldPart(const WorldPart& other) : world_(other.world_), id_(-1) {
    ORVEL_REPORT(
        Fatal, detail::about(Diagnostic::Code::Misuse), "Runing WorldPart copy constructor\n");
}

bool WorldPart::changeState(State state) noexcept {
    if (state == this->state()) {
        return false;
    }
    previousState_ = state_;
    state_ = static_cast<std::int16_t>(state);
    return true;
}

} // namespace Orvel
