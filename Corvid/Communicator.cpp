#include <Corvid/Communicator.h>

#include <Corvid/detail/net/Connection.h>

#include <utility>

namespace Corvid {

Communicator::Communicator(std::shared_ptr<detail::Connection> connection)
    : connection_(std::move(connection)),
      mayDrive_(connection_->key() == nullptr || connection_->key()->right == Keys::Right::Drive) {}

Communicator::~Communicator() {
    connection_->end("the application closed it");
}

bool Communicator::sendFrame(const std::byte* frame, std::size_t size) {
    return connection_->sendFrame(frame, size);
}

void Communicator::refuseEvent(const std::string& reason) {
    connection_->report(reason);
}

bool Communicator::receiveFrame(std::span<const std::byte>& frame) {
    return connection_->receiveFrame(frame);
}

void Communicator::refuseFrame(const std::string& reason) {
    connection_->end("it sent an invalid event: " + reason);
}

void Communicator::close() {
    connection_->end("the application closed it");
}

short Communicator::id() const {
    return connection_->peer().id;
}

std::uint16_t Communicator::features() const {
    return connection_->peer().features;
}

Communicator::Counters Communicator::counters() const {
    return connection_->counters();
}

Communicator::ClockOffer Communicator::clockOffer() const {
    return connection_->clockOffer();
}

void Communicator::takeClockAnswer(std::uint32_t number, std::int64_t received, std::int64_t sent) {
    connection_->takeClockAnswer(number, received, sent);
}

PeerClock Communicator::clock() const {
    return connection_->clock();
}

void Communicator::setTiming(const Timing& timing) {
    connection_->setTiming(timing);
}

std::chrono::steady_clock::time_point Communicator::lastArrival() const {
    return connection_->lastArrival();
}

} // namespace Corvid
