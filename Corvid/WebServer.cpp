#include <Corvid/WebServer.h>

#include <Corvid/detail/http/HttpServer.h>
#include <Corvid/detail/http/WebSite.h>

#include <utility>

namespace Corvid {

WebServer::WebServer()
    : site_(std::make_unique<detail::WebSite>()),
      server_(std::make_unique<detail::HttpServer>(*site_)) {}

WebServer::~WebServer() = default;

bool WebServer::addPage(const std::string& path, const WebPage& page) {
    return site_->addPage(path, page);
}

void WebServer::setName(const std::string& name) {
    site_->name = name;
}

const std::string& WebServer::name() const {
    return site_->name;
}

void WebServer::setNotice(const std::string& notice) {
    site_->notice = notice;
}

const std::string& WebServer::notice() const {
    return site_->notice;
}

void WebServer::setContact(const std::string& contact) {
    site_->contact = contact;
}

const std::string& WebServer::contact() const {
    return site_->contact;
}

void WebServer::addHostName(const std::string& name) {
    site_->hostNames.push_back(name);
}

void WebServer::setToken(const std::string& token) {
    site_->token = token;
}

void WebServer::setLimits(const Limits& limits) {
    site_->limits = limits;
}

const WebServer::Limits& WebServer::limits() const {
    return site_->limits;
}

void WebServer::setLogSize(std::size_t size) {
    site_->setLogSize(size);
}

std::size_t WebServer::logSize() const {
    return site_->logSize();
}

void WebServer::createLogPage(
    const ProtocolHTTP::Request& /*request*/, ProtocolHTTP::Reply& reply) {
    site_->createLogPage(reply);
}

std::string WebServer::createFrame(const std::string& title, const std::string& content) const {
    return site_->createFrame(title, content);
}

void WebServer::open(const std::string& host, std::uint16_t port) {
    server_->open(host, port);
    site_->listeningHost = host;
}

void WebServer::close() {
    server_->close();
}

bool WebServer::isOpen() const {
    return server_->isOpen();
}

std::uint16_t WebServer::port() const {
    return server_->port();
}

WebServer::Counters WebServer::counters() const {
    Counters counters = site_->counters;
    counters.connections = server_->connections();
    counters.bytesWaiting = server_->bytesWaiting();
    return counters;
}

void WebServer::setDiagnostic(Diagnostic diagnostic) {
    site_->diagnostic = std::move(diagnostic);
}

std::shared_ptr<Loop> WebServer::loop() const {
    return server_->loop();
}

void WebServer::setLoop(std::shared_ptr<Loop> loop) {
    server_->setLoop(std::move(loop));
}

bool WebServer::serve() {
    return server_->serve();
}

std::chrono::steady_clock::time_point WebServer::nextServe() const {
    return server_->nextServe();
}

} // namespace Corvid
