#include <Show/OscInput.h>

#include <Show/Playback.h>
#include <Show/osc/OscServer.h>

#include <Corvid/InetAddress.h>
#include <Orvel/Server.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstring>
#include <netdb.h>
#include <netinet/in.h>
#include <optional>

namespace Show {

namespace {

using Clock = OscServer::Clock;

constexpr std::chrono::milliseconds kSlice{4};
constexpr double kMaxWait = 3600.0; // so that no clock runs over

/// Resolves "HOST:PORT"; nothing if that is impossible.
std::optional<Corvid::Socket::Endpoint> resolve(const std::string& text) {
    const auto colon = text.rfind(':');
    if (colon == std::string::npos) {
        return std::nullopt;
    }
    unsigned short port = 0;
    const char* end = text.data() + text.size();
    const auto [last, error] = std::from_chars(text.data() + colon + 1, end, port);
    addrinfo wanted{};
    wanted.ai_family = AF_INET;
    addrinfo* list = nullptr;
    if (error != std::errc() || last != end || port == 0 ||
        ::getaddrinfo(text.substr(0, colon).c_str(), nullptr, &wanted, &list) != 0) {
        return std::nullopt;
    }
    const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> owner(list, &::freeaddrinfo);
    sockaddr_in address{};
    std::memcpy(&address, list->ai_addr, sizeof address);
    return Corvid::Socket::Endpoint{
        Corvid::InetAddress::fromBits(ntohl(address.sin_addr.s_addr)), port};
}

} // namespace

struct OscInput::State {
    std::function<void(const std::string& message)> report;
    std::shared_ptr<Corvid::Loop> loop;
    std::string error;
    std::optional<OscServer> server; // none if it is not open
};

OscInput::OscInput(Orvel::World& world) : OscInput(world, Settings()) {}

OscInput::OscInput(Orvel::World& world, const Settings& settings)
    : state_(new State{settings.report, settings.loop, {}, {}}) {
    State& state = *state_;
    if (state.loop == nullptr) {
        state.loop = std::make_shared<Corvid::Loop>();
    }
    const auto address = Corvid::InetAddress::getByAddress(settings.address);
    if (!address.isValid() || address.isMulticast()) {
        state.error =
            "expected an IPv4 address of an interface, found \"" + settings.address + "\"";
        return;
    }
    if (!(settings.scale > 0.0F) || !std::isfinite(settings.scale)) {
        state.error = "expected a scale above 0";
        return;
    }
    std::vector<Corvid::Socket::Endpoint> feedback;
    for (const std::string& text : settings.feedback) {
        const auto receiver = resolve(text);
        if (!receiver || feedback.size() == OscFeedback::kMaxSubscribers) {
            state.error = receiver ? "more than 16 receivers of feedback"
                                   : "cannot send feedback to \"" + text +
                                         "\": expected HOST:PORT of a known host";
            return;
        }
        feedback.push_back(*receiver);
    }
    state.server.emplace(
        world,
        OscServer::Settings{
            settings.address, settings.port, settings.scale, settings.replyPort, settings.change,
            settings.queryPort, std::move(feedback)},
        settings.apply
            ? settings.apply
            : [&world](Orvel::CommandEvent& event) { Orvel::Server::applyEvent(world, &event); },
        [&state](const std::string& message) {
            if (state.server && state.server->port() == 0) {
                state.error = message; // it cannot open
            } else if (state.report) {
                state.report(message);
            }
        },
        state.loop);
    if (!state.server->open()) {
        state.server.reset();
    }
}

OscInput::~OscInput() = default;

bool OscInput::isOpen() const noexcept {
    return state_->server.has_value();
}

const std::string& OscInput::error() const noexcept {
    return state_->error;
}

unsigned short OscInput::port() const noexcept {
    return isOpen() ? state_->server->port() : 0;
}

unsigned short OscInput::queryPort() const noexcept {
    return isOpen() ? state_->server->queryPort() : 0;
}

Corvid::Loop& OscInput::loop() const noexcept {
    return *state_->loop;
}

void OscInput::control(const Playback* playback) {
    if (isOpen()) {
        state_->server->control(playback == nullptr ? nullptr : playback->transport());
    }
}

void OscInput::serve(double seconds) {
    if (!isOpen()) {
        return;
    }
    if (seconds > 0.0) {
        const std::chrono::duration<double> wait(std::min(seconds, kMaxWait));
        state_->loop->wait(Clock::now() + std::chrono::duration_cast<Clock::duration>(wait));
    }
    state_->server->serve(kSlice);
}

void OscInput::finish() {
    if (isOpen()) {
        state_->server->finish();
    }
}

std::string OscInput::summary() const {
    return isOpen() ? state_->server->summary() : std::string();
}

} // namespace Show
