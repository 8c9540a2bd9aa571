#include <Show/monitor/MonitorBackend.h>

#include <Show/detail/RandomHex.h>
#include <Show/monitor/MetricsText.h>
#include <Show/monitor/NetworkReading.h>
#include <Show/monitor/PageFiles.h>
#include <Show/monitor/SceneJson.h>
#include <Show/monitor/StatusJson.h>

#include <Config/Param.h>
#include <Config/ParamLine.h>
#include <Corvid/IOException.h>
#include <Corvid/InetAddress.h>
#include <Corvid/WebPage.h>
#include <Orvel/Diagnostic.h>
#include <Orvel/World.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

namespace Show {

namespace {

using Corvid::ProtocolHTTP;

/// The page may only use this server's own files, and no other page may frame it.
constexpr const char* kPolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; img-src 'self'; "
    "base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

/// A page of one content type that a function fills in, never cached by browsers.
class Page : public Corvid::WebPage {
public:
    Page(std::string contentType, MonitorBackend::Fill fill)
        : contentType_(std::move(contentType)), fill_(std::move(fill)) {}

    bool create(
        Corvid::WebClient* /*client*/, const ProtocolHTTP::Request& /*request*/,
        ProtocolHTTP::Reply& reply) override {
        reply.setHeader("Content-Type", contentType_);
        reply.setHeader("Content-Security-Policy", kPolicy);
        reply.setHeader("Cache-Control", "no-store");
        fill_(reply);
        return true;
    }
    [[nodiscard]] WebPage* clone() const override { return new Page(*this); }

private:
    std::string contentType_;
    MonitorBackend::Fill fill_;
};

constexpr std::uint32_t kLoopbackNetwork = 127;

void warn(const std::string& text) {
    Orvel::report(
        {Orvel::Diagnostic::Code::WebServer,
         Orvel::Log::Level::Warning,
         {},
         {},
         text,
         "monitor: " + text},
        "monitor");
}

constexpr std::array kParams{
    Config::Param{
        "address", Config::Param::Type::Text, "127.0.0.1",
        "address or name of the interface to listen on; 0.0.0.0 for all"},
    Config::Param{
        "port", Config::Param::Type::Number, MonitorBackend::kDefaultPort,
        "TCP port; 0 for a free one, as when the default is taken", 0, 65535},
    Config::Param{
        "names", Config::Param::Type::List, "", "host names that browsers may use besides"},
    Config::Param{
        "token", Config::Param::Type::Text, "",
        "text that browsers must send; empty: beyond this machine a random one, on it none"}};

} // namespace

Orvel::BackendType MonitorBackend::_type(
    "monitor", &MonitorBackend::createMethod,
    "shows the scene in a browser as it plays; added by --monitor", kParams);

MonitorBackend::MonitorBackend(Orvel::World& world, const char* params)
    : PlayClock(world, params), instance_(randomHex(16)) {
    server_->setName("Orvel monitor");
    server_->setDiagnostic(&warn);
    const Config::ParamReader read(
        *this->params(), kParams,
        [](const Config::Param&, const std::string& sentence) { warn(sentence); });
    for (const std::string& name : read.list("names")) {
        server_->addHostName(name);
    }
    addPages();
    token_ = read.text("token");
    if (const auto address = Corvid::InetAddress::getByAddress(read.text("address"));
        token_.empty() && !(address.isValid() && address.bits() >> 24U == kLoopbackNetwork)) {
        token_ = randomHex(32);
    }
    server_->setToken(token_);
    open(read.text("address"), static_cast<std::uint16_t>(read.number("port")), read.isSet("port"));
}

MonitorBackend* MonitorBackend::add(
    Orvel::World& world, const std::string& address, std::optional<std::uint16_t> port,
    const std::vector<std::string>& hostNames) {
    std::string params = "address='" + address + "'";
    if (port) {
        params += " port=" + std::to_string(*port);
    }
    std::string names;
    for (const std::string& name : hostNames) {
        names += (names.empty() ? "" : ",") + name;
    }
    if (!names.empty()) {
        params += " names='" + names + "'";
    }
    if ((address + names).find('\'') != std::string::npos) {
        return nullptr; // neither an address nor a name, and it would end the parameter
    }
    return dynamic_cast<MonitorBackend*>(world.addBackend("monitor", params.c_str()));
}

void MonitorBackend::add(const std::string& path, const char* type, Fill fill) {
    server_->addPage(path, Page(type, std::move(fill)));
}

void MonitorBackend::addFile(const std::string& path, std::string content) {
    const bool isStyle = path.ends_with(".css");
    const char* type = path == "/" ? "text/html; charset=utf-8"
                       : isStyle   ? "text/css; charset=utf-8"
                                   : "text/javascript; charset=utf-8";
    add(path, type, [content = std::move(content)](auto& reply) { reply.setBody(content); });
}

void MonitorBackend::addPages() {
    for (const auto& [name, content] : kPageFiles) {
        addFile(name.ends_with(".html") ? "/" : "/" + std::string(name), std::string(content));
    }
    add("/favicon.ico", "image/vnd.microsoft.icon",
        [](auto& reply) { reply.setBody(std::string(Corvid::WebServer::icon())); });
    add("/api/scene", "application/json", [this](auto& reply) { reply.setBody(SceneJson(*this)); });
    add("/api/status", "application/json",
        [this](auto& reply) { reply.setBody(StatusJson(*this, readNetwork(world()))); });
    add("/metrics", "text/plain; version=0.0.4; charset=utf-8",
        [this](auto& reply) { reply.setBody(metricsText(*this)); });
}

void MonitorBackend::showDesk() {
    const auto html = std::ranges::find_if(
        kPageFiles, [](const PageFile& file) { return file.name.ends_with(".html"); });
    constexpr std::string_view kScript = "\"monitor.js\"";
    std::string page(html->content);
    page.replace(page.find(kScript), kScript.size(), "\"desk.js\"");
    addFile("/", std::move(page));
}

void MonitorBackend::open(const std::string& address, std::uint16_t port, bool exactly) {
    address_ = address;
    try {
        try {
            server_->open(address_, port);
        } catch (const Corvid::IOException&) {
            if (exactly) {
                throw;
            }
            server_->open(address_, 0); // the default port is in use by another monitor
        }
    } catch (const Corvid::IOException& fault) {
        warn(fault.what());
    }
}

Orvel::BackendState MonitorBackend::state() const {
    Orvel::BackendState state;
    state.working = isOpen();
    state.page = url();
    state.webServer = server_.get();
    return state;
}

std::string MonitorBackend::url() const {
    if (!isOpen()) {
        return {};
    }
    std::string host = address_;
    if (host.empty()) {
        host = "localhost";
    } else if (host == "0.0.0.0") { // all interfaces; no single address to print
        host = Corvid::InetAddress::getLocalHostName();
    }
    return "http://" + host + ":" + std::to_string(server_->port()) + "/" +
           (token_.empty() ? "" : "?token=" + token_);
}

std::string_view MonitorBackend::soundName(int source) const {
    const auto found = names_.find(source);
    return found == names_.end() ? std::string_view() : found->second;
}

const MonitorBackend::Object* MonitorBackend::object(int emitter) const {
    const auto found = objects_.find(emitter);
    return found == objects_.end() ? nullptr : &found->second;
}

double MonitorBackend::lengthOf(const Orvel::Source& source) {
    const double rate = source.sampleRate() * (source.bitsPerSample() / 8.0) * source.channels();
    return source.dataKind() == Orvel::Source::PCM_SD && rate > 0.0
               ? static_cast<double>(source.data().size()) / rate
               : static_cast<double>(source.duration());
}

bool MonitorBackend::isListed(const Orvel::Backend& backend) {
    return dynamic_cast<const PlayClock*>(&backend) == nullptr ||
           dynamic_cast<const MonitorBackend*>(&backend) != nullptr;
}

bool MonitorBackend::isOver(const Orvel::Emitter& emitter) {
    if (const Orvel::Source* source = emitter.source()) {
        setLength(source->id(), lengthOf(*source)); // the length of a URL is learned over time
    }
    return PlayClock::isOver(emitter);
}

void MonitorBackend::pass() {
    seconds_ = std::chrono::duration<double>(Clock::now() - begin_).count();
    passTo(seconds_, {});
}

bool MonitorBackend::update() {
    pass();
    ++updates_;
    rates_.advanceTo(static_cast<std::uint64_t>(seconds_));
    server_->update();
    return true;
}

void MonitorBackend::resetBackend() {
    PlayClock::resetBackend();
    rates_.count(ChangeKind::Scene);
}

void MonitorBackend::setEnabled() {
    rates_.count(ChangeKind::Scene);
}

void MonitorBackend::setListenerTransform() {
    rates_.count(ChangeKind::Listener);
}

void MonitorBackend::createSource(Orvel::Source& /*source*/) {
    rates_.count(ChangeKind::Source);
}

void MonitorBackend::destroySource(Orvel::Source& source) {
    rates_.count(ChangeKind::Source);
    names_.erase(source.id());
    PlayClock::destroySource(source);
}

void MonitorBackend::setSourceData(Orvel::Source& source) {
    rates_.count(ChangeKind::Source);
    PlayClock::setSourceData(source);
}

void MonitorBackend::setSourceParam(Orvel::Source& source) {
    rates_.count(ChangeKind::Source);
    pass();
    PlayClock::setSourceParam(source);
}

void MonitorBackend::setSourceState(Orvel::Source& /*source*/) {
    rates_.count(ChangeKind::SourceState);
}

void MonitorBackend::createEmitter(Orvel::Emitter& /*emitter*/) {
    rates_.count(ChangeKind::Emitter);
}

void MonitorBackend::destroyEmitter(Orvel::Emitter& emitter) {
    rates_.count(ChangeKind::Emitter);
    PlayClock::destroyEmitter(emitter);
}

void MonitorBackend::setEmitterTransform(Orvel::Emitter& /*emitter*/) {
    rates_.count(ChangeKind::Transform);
}

void MonitorBackend::setEmitterHull(Orvel::Emitter& /*emitter*/) {
    rates_.count(ChangeKind::Hull);
}

void MonitorBackend::setEmitterParam(Orvel::Emitter& /*emitter*/) {
    rates_.count(ChangeKind::Param);
}

void MonitorBackend::setEmitterConnection(Orvel::Emitter& emitter) {
    rates_.count(ChangeKind::Connection);
    PlayClock::setEmitterConnection(emitter);
}

void MonitorBackend::setEmitterState(Orvel::Emitter& emitter) {
    rates_.count(ChangeKind::EmitterState);
    pass(); // the last update may be long ago, if sounds were loaded since
    PlayClock::setEmitterState(emitter);
}

} // namespace Show
