#include <Corvid/MultiClient.h>

#include <Corvid/detail/net/Connector.h>
#include <Corvid/detail/net/Hub.h>

#include <utility>

namespace Corvid {

MultiClient::MultiClient(int protocolVersion)
    : MultiCommunicator(protocolVersion),
      connector_(std::make_shared<detail::Connector>(hub(), multicast_)) {
    multicast_.report_ = [this](const std::string& text) { hub().report(Severity::Warning, text); };
}

MultiClient::~MultiClient() {
    close();
}

bool MultiClient::open() {
    return hub().open(*connector_);
}

void MultiClient::setSearchInterval(double seconds) {
    connector_->setSearchInterval(seconds);
}

void MultiClient::setMeasuredQueries(int count) {
    connector_->setMeasuredQueries(count);
}

void MultiClient::setMaxFoundServers(std::size_t count) {
    connector_->setMaxFound(count);
}

void MultiClient::setConnecting(bool connecting) {
    connector_->setConnecting(connecting);
}

void MultiClient::setServerIds(std::vector<short> ids) {
    connector_->setServerIds(std::move(ids));
}

void MultiClient::connectToServer(const std::string& host, unsigned short port) {
    connector_->want(host, port, true);
}

void MultiClient::removeServer(const std::string& host, unsigned short port) {
    connector_->want(host, port, false);
}

void MultiClient::setDeferred(bool deferred) {
    hub().setDeferred(deferred);
}

int MultiClient::deliver(const std::function<void(Communicator*)>& receive) {
    return hub().deliver(receive);
}

std::vector<MultiClient::FoundServer> MultiClient::foundServers() const {
    return connector_->foundServers();
}

std::vector<MultiClient::SearchedInterface> MultiClient::searchedInterfaces() const {
    return connector_->searchedInterfaces();
}

} // namespace Corvid
