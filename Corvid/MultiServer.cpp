#include <Corvid/MultiServer.h>

#include <Corvid/detail/net/Hub.h>
#include <Corvid/detail/net/Listener.h>

#include <utility>

namespace Corvid {

MultiServer::MultiServer(int protocolVersion)
    : MultiCommunicator(protocolVersion),
      listener_(std::make_shared<detail::Listener>(hub(), multicast_)) {
    multicast_.report_ = [this](const std::string& text) { hub().report(Severity::Warning, text); };
}

MultiServer::~MultiServer() {
    close();
}

bool MultiServer::open(const std::string& host, unsigned short port, bool announce) {
    if (!hub().open(*listener_)) {
        return false;
    }
    const std::string error = listener_->listen(host, port, announce);
    if (!error.empty()) {
        hub().report(
            Severity::Warning, "cannot listen on " + (host.empty() ? "all interfaces" : host) +
                                   ", port " + std::to_string(port) + ": " + error);
        close();
        return false;
    }
    return true;
}

void MultiServer::discardLeftovers(const Communicator* client) {
    hub().discardLeftovers(client);
}

void MultiServer::setAdmission(Admission admission) {
    listener_->setAdmission(std::move(admission));
}

void MultiServer::measureClock(
    Communicator& client, const Communicator::ClockOffer& offer,
    std::function<void(std::uint32_t number)> ask) {
    listener_->measure(client.connection_, offer, std::move(ask));
}

std::uint16_t MultiServer::port() const {
    return listener_->port();
}

std::vector<Multicast::UsedInterface> MultiServer::interfaces() const {
    return listener_->interfaces();
}

} // namespace Corvid
