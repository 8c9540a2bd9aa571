#include <Corvid/MultiCommunicator.h>

#include <Corvid/detail/net/Hub.h>

#include <utility>

namespace Corvid {

MultiCommunicator::MultiCommunicator(int protocolVersion)
    : hub_(std::make_shared<detail::Hub>(*this, protocolVersion)) {
    hub_->context()->stream.setLagLimit(kDefaultLagLimit);
}

MultiCommunicator::~MultiCommunicator() = default;

bool MultiCommunicator::sendFrame(const std::byte* frame, std::size_t size) {
    return hub_->sendFrame(frame, size);
}

void MultiCommunicator::sendFrameTo(
    std::uint16_t features, const std::byte* frame, std::size_t size) {
    hub_->sendFrameTo(features, frame, size);
}

void MultiCommunicator::endBatch() {
    hub_->endBatch();
}

void MultiCommunicator::refuseEvent(const std::string& reason) {
    hub_->report(Severity::Warning, reason);
}

bool MultiCommunicator::addCommunicator(Communicator* communicator) {
    return hub_->add(communicator);
}

bool MultiCommunicator::removeCommunicator(Communicator* communicator) {
    return hub_->remove(communicator);
}

bool MultiCommunicator::waitForCommunicators() {
    return hub_->wait(nullptr);
}

bool MultiCommunicator::waitForCommunicators(std::chrono::steady_clock::duration atMost) {
    return hub_->wait(nullptr, std::chrono::steady_clock::now() + atMost);
}

std::shared_ptr<Loop> MultiCommunicator::loop() const {
    return hub_->loop();
}

bool MultiCommunicator::receiveCommunicator(Communicator*& communicator) {
    communicator = nullptr;
    return hub_->wait(&communicator);
}

Communicator* MultiCommunicator::communicatorInTurn() const {
    return hub_->inTurn();
}

void MultiCommunicator::breakWait() {
    hub_->breakWait();
}

bool MultiCommunicator::communicatorsAvail(int& count) {
    return hub_->available(count);
}

void MultiCommunicator::close() {
    hub_->close();
}

short MultiCommunicator::id() const {
    return hub_->id;
}

void MultiCommunicator::setId(short id) {
    hub_->id = id;
}

void MultiCommunicator::setFeatures(std::uint16_t features) {
    hub_->features = static_cast<std::uint16_t>(features & ~detail::Greeting::kNotAdmitted);
}

void MultiCommunicator::setNoDelay(bool noDelay) {
    hub_->noDelay = noDelay;
}

void MultiCommunicator::setLagLimit(std::size_t bytes) {
    hub_->context()->stream.setLagLimit(bytes);
}

void MultiCommunicator::setMaxPerAddress(std::size_t count) {
    hub_->maxPerAddress = count;
}

void MultiCommunicator::setNewestOnly(
    std::function<FrameRole(std::span<const std::byte> frame)> classify) {
    hub_->context()->stream.setNewestOnly(std::move(classify));
}

bool MultiCommunicator::setKeys(const std::string& path) {
    return hub_->setKeys(path);
}

void MultiCommunicator::setDiagnostic(Diagnostic diagnostic) {
    hub_->context()->setDiagnostic(std::move(diagnostic));
}

MultiCommunicator::Counters MultiCommunicator::counters() const {
    return hub_->counters();
}

std::uint64_t MultiCommunicator::instanceId() const {
    return hub_->greeting().instance;
}

} // namespace Corvid
