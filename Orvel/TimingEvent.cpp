#include <Orvel/TimingEvent.h>

#include <cstdint>

namespace Orvel {

void TimingEvent::setTiming(const Corvid::Communicator::Timing& timing) {
    ready = timing.ready;
    known = timing.clock.known;
    offset = static_cast<unsigned long>(timing.clock.offset);
    error = static_cast<float>(timing.clock.error);
    drift = static_cast<float>(timing.clock.drift);
    driftError = static_cast<float>(timing.clock.driftError);
    roundTrip = static_cast<float>(timing.clock.roundTrip);
    jitter = static_cast<float>(timing.clock.jitter);
    byConnection = timing.clock.byConnection;
    batches = timing.batches;
    lateBatches = timing.lateBatches;
    worstLateness = static_cast<float>(timing.worstLateness);
    sceneAge = static_cast<float>(timing.sceneAge);
}

Corvid::Communicator::Timing TimingEvent::timing() const {
    Corvid::Communicator::Timing timing;
    timing.ready = ready;
    timing.clock.known = known;
    timing.clock.offset = static_cast<std::int64_t>(offset);
    timing.clock.error = static_cast<double>(error);
    timing.clock.drift = static_cast<double>(drift);
    timing.clock.driftError = static_cast<double>(driftError);
    timing.clock.roundTrip = static_cast<double>(roundTrip);
    timing.clock.jitter = static_cast<double>(jitter);
    timing.clock.byConnection = byConnection;
    timing.batches = batches;
    timing.lateBatches = lateBatches;
    timing.worstLateness = static_cast<double>(worstLateness);
    timing.sceneAge = static_cast<double>(sceneAge);
    return timing;
}

} // namespace Orvel
