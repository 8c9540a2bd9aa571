#include "doctor/NetworkCheck.h"

#include <Corvid/InetAddress.h>
#include <Corvid/Loop.h>
#include <Corvid/MultiClient.h>
#include <Corvid/Socket.h>
#include <Orvel/CommandEvent.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <netinet/in.h>
#include <random>
#include <span>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <system_error>
#include <utility>

namespace OrvelTool {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Corvid::InetAddress;
using Corvid::Socket;
using Verdict = CheckResult::Verdict;

constexpr auto kAnswerPatience = 500ms;
constexpr auto kAnswerPoll = 10ms;
constexpr auto kSearch = 1s;
constexpr double kNoSearch = 3600.0; // in seconds
constexpr int kTimingQueries = 20;
constexpr std::size_t kMaxServersTried = 16;
constexpr double kLatencyOfPlay = 0.04;        // in seconds, unless told
constexpr double kLatencyMargin = 0.005;       // in seconds, beyond the greatest round trip
constexpr double kLatencyStep = 0.005;         // in seconds
constexpr double kTimeToResend = 0.25;         // in seconds: TCP's shortest timeout, and some more
constexpr unsigned long kFewDescriptors = 512; // of files

/// Waits until a socket can be read, or written. False when `end` has come.
bool wait(const Socket& socket, bool toRead, Clock::time_point end) {
    const auto loop = std::make_shared<Corvid::Loop>();
    bool ready = false;
    Corvid::Loop::Watch watch(loop, socket, [&ready](auto) { ready = true; });
    watch.want(toRead, !toRead);
    while (!ready && Clock::now() < end) {
        loop->poll(end);
    }
    return ready;
}

std::string reason() {
    return std::generic_category().message(errno);
}

std::string milliseconds(double seconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%.2f ms", seconds * 1e3);
    return text;
}

/// Formats as hours, minutes and seconds.
std::string clockText(double seconds) {
    const double whole = std::floor(seconds / 60.0);
    char text[48];
    std::snprintf(
        text, sizeof text, "%.0f:%02.0f:%06.3f", std::floor(whole / 60.0), std::fmod(whole, 60.0),
        seconds - whole * 60.0);
    return text;
}

/// Sends one datagram to the group on an interface and waits for it to come back. Returns an error
/// message, or an empty text and the time taken in `seconds`.
std::string tryMulticast(
    const InetAddress& interface, const Corvid::Multicast::Settings& settings, double& seconds) {
    Socket socket;
    ip_mreqn membership{};
    membership.imr_multiaddr.s_addr = htonl(settings.address.bits());
    membership.imr_address.s_addr = htonl(interface.bits());
    const int ttl = std::min(settings.ttl, 1);
    const Socket::Endpoint group{settings.address, settings.port};
    if (socket.open(Socket::Type::Datagram) || !socket.set(SOL_SOCKET, SO_REUSEADDR, 1) ||
        socket.bind(group) || !socket.set(IPPROTO_IP, IP_MULTICAST_ALL, 0) ||
        !socket.set(IPPROTO_IP, IP_ADD_MEMBERSHIP, membership) ||
        !socket.set(IPPROTO_IP, IP_MULTICAST_IF, membership) ||
        !socket.set(IPPROTO_IP, IP_MULTICAST_LOOP, 1) ||
        !socket.set(IPPROTO_IP, IP_MULTICAST_TTL, ttl)) {
        return "cannot join the group: " + reason();
    }
    // Differs from the magic of every search datagram.
    const std::string sent = "ORVELDOC" + std::to_string(std::random_device()());
    const auto begin = Clock::now();
    if (const auto result = socket.send(std::as_bytes(std::span(sent)), group); result.error) {
        return "cannot send: " + result.error.message();
    }
    while (wait(socket, true, begin + kAnswerPatience)) {
        std::string text(64, '\0');
        text.resize(socket.receive(std::as_writable_bytes(std::span(text))).bytes);
        if (text == sent) {
            seconds = std::chrono::duration<double>(Clock::now() - begin).count();
            return {};
        }
    }
    return "the datagram sent does not come back";
}

Corvid::Multicast::Settings settingsOf(const NetworkOptions& options) {
    Corvid::Multicast multicast;
    options.apply(multicast);
    return multicast.settings();
}

/// Whether a server's port accepts connections; `seconds` is the time taken.
bool reach(const InetAddress& address, std::uint16_t port, double& seconds) {
    Socket socket;
    const auto begin = Clock::now();
    if (socket.open(Socket::Type::Stream) || socket.connect({address, port}) ||
        !wait(socket, false, begin + kAnswerPatience)) {
        return false;
    }
    seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    return !socket.takeError();
}

/// What the network does to a server's clock and changes.
CheckResult serverTiming(const Corvid::MultiClient::FoundServer& server) {
    const double least = server.leastRoundTripSeconds;
    const double greatest = server.greatestRoundTripSeconds;
    const double jitter = server.usualRoundTripSeconds - least;
    const bool lossy = server.answers < server.queries;
    const double needed = greatest + kLatencyMargin + (lossy ? kTimeToResend : 0.0);
    const double latencyMs = std::ceil(needed / kLatencyStep) * kLatencyStep * 1e3;
    char latency[32];
    std::snprintf(latency, sizeof latency, "%.0f", latencyMs);
    CheckResult result{
        "timing " + server.address.text() + ":" + std::to_string(server.port),
        Verdict::Ok,
        std::to_string(server.answers) + " of " + std::to_string(server.queries) +
            " queries answered, in " + milliseconds(least) + " to " + milliseconds(greatest) +
            " (jitter " + milliseconds(jitter) +
            "); a difference between the two directions cannot be seen, and makes the server at "
            "most " +
            milliseconds(least / 2.0) + " early or late",
        "a latency of " + std::string(latency) + " ms or more suits this network",
        {{"queries", server.queries},
         {"answers", server.answers},
         {"leastRoundTripMs", least * 1e3},
         {"greatestRoundTripMs", greatest * 1e3},
         {"jitterMs", jitter * 1e3},
         {"latencyMs", latencyMs}}};
    if (needed > kLatencyOfPlay) {
        result.verdict = Verdict::Warning;
        result.advice =
            std::string(
                lossy ? "the network loses messages or is very slow" : "the network is slow") +
            ", so some changes come too late with the default latency of play, 40 ms: "
            "use a cable instead of a wireless network, or play with --backend "
            "client:latency=" +
            latency + " or more";
    }
    return result;
}

std::string freeFor(Socket::Type type, std::uint16_t port) {
    Socket socket;
    const bool tcp = type == Socket::Type::Stream;
    std::error_code error = socket.open(type);
    if (!error) {
        if (tcp) {
            socket.set(SOL_SOCKET, SO_REUSEADDR, 1);
        }
        error = socket.bind({InetAddress(), port});
    }
    if (!error && tcp) {
        error = socket.listen(1);
    }
    return error ? std::string(tcp ? "TCP" : "UDP") + ": " + error.message() : "";
}

std::string whoHolds(std::uint16_t port) {
    return "ss -tulpn 'sport = :" + std::to_string(port) + "' shows which one";
}

} // namespace

CheckResults checkMulticast(const NetworkOptions& options) {
    const Corvid::Multicast::Settings settings = settingsOf(options);
    CheckResults results;
    bool works = false;
    for (const auto& [address, name] : options.chosenInterfaces()) {
        double seconds = 0.0;
        const std::string fault = tryMulticast(address, settings, seconds);
        works = works || fault.empty();
        CheckResult& result = results.emplace_back();
        result.check = "multicast " + name;
        const std::string where = address.text() + ": ";
        if (fault.empty()) {
            result.text = where + "a datagram sent to " + settings.address.text() + ":" +
                          std::to_string(settings.port) + " comes back, after " +
                          milliseconds(seconds);
            result.values = {{"roundTripMs", seconds * 1e3}};
        } else {
            result.verdict = Verdict::Warning;
            result.text = where + fault;
            result.advice = "servers are not found on this interface: allow UDP port " +
                            std::to_string(settings.port) +
                            " through the firewall, exclude the interface with --interface, or "
                            "name servers with --server HOST:PORT";
        }
    }
    if (results.empty()) {
        results.push_back(
            {"multicast",
             Verdict::Problem,
             "none of the interfaces to use is up",
             "bring one up, or choose another with --interface",
             {}});
    } else if (!works) {
        for (CheckResult& result : results) {
            result.verdict = Verdict::Problem; // multicast works on no interface
        }
    }
    return results;
}

CheckResults checkPorts(const NetworkOptions& options, const std::vector<unsigned short>& ports) {
    const Corvid::Multicast::Settings settings = settingsOf(options);
    CheckResults results;
    const std::string search = std::to_string(settings.port);
    const std::string alone = freeFor(Socket::Type::Datagram, settings.port);
    Socket shared;
    const bool shareable = !shared.open(Socket::Type::Datagram) &&
                           shared.set(SOL_SOCKET, SO_REUSEADDR, 1) &&
                           !shared.bind({settings.address, settings.port});
    results.push_back(
        {"port " + search,
         shareable ? Verdict::Ok : Verdict::Problem,
         "UDP, for the search: " +
             std::string(
                 alone.empty() ? "free"
                 : shareable   ? "in use by servers or clients on this machine, which share it"
                               : "another program has it exclusively"),
         shareable ? ""
                   : "stop that program, or use another --port for servers and clients; " +
                         whoHolds(settings.port),
         {}});
    for (const unsigned short port : ports) {
        std::string fault = freeFor(Socket::Type::Stream, port);
        const std::string udp = freeFor(Socket::Type::Datagram, port);
        fault += (fault.empty() || udp.empty() ? "" : ", ") + udp;
        results.push_back(
            {"port " + std::to_string(port),
             fault.empty() ? Verdict::Ok : Verdict::Problem,
             fault.empty() ? "TCP and UDP: free" : fault,
             fault.empty() ? ""
                           : "choose another, or stop the program that has it; " + whoHolds(port),
             {}});
    }
    return results;
}

CheckResults checkServers(const NetworkOptions& options) {
    Corvid::MultiClient client(Orvel::CommandEvent::kProtocolVersion);
    client.setDiagnostic([](Corvid::MultiCommunicator::Severity, const std::string&) {});
    options.apply(client.multicast());
    client.setConnecting(false);
    if (!options.key().empty()) {
        client.setKeys(options.key());
    }
    client.setMeasuredQueries(Corvid::MultiClient::kMaxMeasuredQueries);
    client.setSearchInterval(std::chrono::duration<double>(kSearch).count() / kTimingQueries);
    client.open();
    const auto end = Clock::now() + kSearch;
    while (Clock::now() < end) {
        client.waitForCommunicators(end - Clock::now());
    }
    client.setSearchInterval(kNoSearch); // the last answers may be on their way
    const auto isAnswered = [](const auto& server) { return server.answers == server.queries; };
    while (Clock::now() < end + kAnswerPatience &&
           !std::ranges::all_of(client.foundServers(), isAnswered)) {
        client.waitForCommunicators(kAnswerPoll);
    }
    CheckResults results;
    std::size_t tried = 0;
    for (const auto& server : client.foundServers()) {
        CheckResult& result = results.emplace_back();
        result.check = "server " + server.address.text() + ":" + std::to_string(server.port);
        result.text = "id " + std::to_string(server.id);
        result.text += ", its clock at " + clockText(server.clockSeconds);
        result.values = {{"id", server.id}, {"clockSeconds", server.clockSeconds}};
        if (server.roundTripSeconds >= 0.0) {
            result.text += ", answers in " + milliseconds(server.roundTripSeconds);
            result.values.emplace_back("roundTripMs", server.roundTripSeconds * 1e3);
        }
        double seconds = 0.0;
        const bool isTried = tried++ < kMaxServersTried;
        if (isTried && !reach(server.address, server.port, seconds)) {
            result.verdict = Verdict::Problem;
            result.text += ", but its TCP port cannot be reached";
            result.advice = "allow TCP port " + std::to_string(server.port) +
                            " through the firewalls; orvel serve --tcp-port keeps it the same";
        } else if (isTried) {
            result.text += ", takes connections in " + milliseconds(seconds);
            result.values.emplace_back("connectMs", seconds * 1e3);
        }
        if (server.answers > 0) {
            results.push_back(serverTiming(server));
        }
    }
    if (results.empty()) {
        results.push_back(
            {"servers",
             Verdict::Ok,
             "none answers",
             "if one should be running, run orvel servers to see possible reasons; servers with "
             "keys "
             "need --key FILE here",
             {}});
    }
    return results;
}

CheckResult checkDescriptors() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    CheckResult result{
        "open files",
        Verdict::Ok,
        "this process may open " + std::to_string(limit.rlim_cur) + " files, and raise that to " +
            std::to_string(limit.rlim_max) + "; each connection needs one",
        {},
        {{"soft", static_cast<double>(limit.rlim_cur)},
         {"hard", static_cast<double>(limit.rlim_max)}}};
    if (limit.rlim_cur < kFewDescriptors) {
        result.verdict = Verdict::Warning;
        result.advice = "raise it with ulimit -n 1024, or with LimitNOFILE for a service";
    }
    return result;
}

} // namespace OrvelTool
