#include <Show/player/StartFrames.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <optional>

namespace Show {

namespace {

constexpr std::chrono::milliseconds kStartMargin{5}; // for this thread to get its processor

} // namespace

StartFrames::StartFrames(const Orvel::World& world) {
    for (Orvel::Backend* backend : world.backends()) {
        auto* voices = dynamic_cast<Orvel::VoicesBackend*>(backend);
        if (voices != nullptr && !voices->isOffline()) {
            exact_.push_back(voices);
        }
    }
}

StartFrames::Lead StartFrames::lead() const {
    Lead lead;
    for (const Orvel::VoicesBackend* backend : exact_) {
        const Orvel::FrameClock clock = backend->frameClock();
        if (clock.rate > 0.0) {
            const auto soonest = clock.timeOf(static_cast<double>(clock.soonest)) - Clock::now();
            lead.start = std::max<std::chrono::nanoseconds>(lead.start, soonest + kStartMargin);
            lead.value = std::max(lead.value, clock.latency);
        }
    }
    return lead;
}

std::chrono::nanoseconds
StartFrames::begin(Clock::time_point due, std::chrono::nanoseconds lateness) {
    for (Orvel::VoicesBackend* backend : exact_) {
        const Orvel::FrameClock clock = backend->frameClock();
        const std::int64_t frame = std::llround(clock.frameAt(due));
        backend->setStartFrame(frame);
        if (clock.rate > 0.0) { // a start joins the sound where it should be by then
            lateness = std::max<std::chrono::nanoseconds>(
                lateness, clock.timeOf(static_cast<double>(clock.mixed)) - due);
        }
    }
    return lateness;
}

void StartFrames::end() {
    for (Orvel::VoicesBackend* backend : exact_) {
        backend->setStartFrame(std::nullopt);
    }
}

} // namespace Show
