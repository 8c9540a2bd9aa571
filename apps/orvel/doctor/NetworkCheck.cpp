#include "doctor/NetworkCheck.h"

#include <Corvid/InetAddress.h>
#include <Corvid/MultiClient.h>
#include <Orvel/CommandEvent.h>

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <netinet/in.h>
#include <poll.h>
#include <random>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace OrvelTool {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Corvid::InetAddress;
using Verdict = Finding::Verdict;

constexpr auto kAnswerPatience = 500ms;
constexpr auto kSearch = 1s;
constexpr double kSearchInterval = 0.25; // in seconds
constexpr std::size_t kMostServersTried = 16;
constexpr double kLongRoundTrip = 0.05;        // in seconds
constexpr unsigned long kFewDescriptors = 512; // of files

class Socket {
public:
    explicit Socket(int type)
        : descriptor_(socket(AF_INET, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {}
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    ~Socket() {
        if (descriptor_ >= 0) {
            close(descriptor_);
        }
    }
    [[nodiscard]] int get() const noexcept { return descriptor_; }
    template <class Value>
    [[nodiscard]] bool set(int level, int name, const Value& value) const {
        return setsockopt(descriptor_, level, name, &value, sizeof value) == 0;
    }
    [[nodiscard]] bool bindTo(std::uint32_t bits, std::uint16_t port) const;
    /// Waits for one of these poll events. Returns false if `end` is reached first.
    [[nodiscard]] bool wait(short events, Clock::time_point end) const {
        pollfd one{descriptor_, events, 0};
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
        return poll(&one, 1, static_cast<int>(std::max<long>(0, left.count()))) > 0;
    }

private:
    int descriptor_;
};

sockaddr_in place(std::uint32_t bits, std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(bits);
    return address;
}

bool Socket::bindTo(std::uint32_t bits, std::uint16_t port) const {
    const sockaddr_in address = place(bits, port);
    return bind(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
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
    const Socket socket(SOCK_DGRAM);
    ip_mreqn membership{};
    membership.imr_multiaddr.s_addr = htonl(settings.address.bits());
    membership.imr_address.s_addr = htonl(interface.bits());
    const int ttl = std::min(settings.ttl, 1);
    if (socket.get() < 0 || !socket.set(SOL_SOCKET, SO_REUSEADDR, 1) ||
        !socket.bindTo(settings.address.bits(), settings.port) ||
        !socket.set(IPPROTO_IP, IP_MULTICAST_ALL, 0) ||
        !socket.set(IPPROTO_IP, IP_ADD_MEMBERSHIP, membership) ||
        !socket.set(IPPROTO_IP, IP_MULTICAST_IF, membership) ||
        !socket.set(IPPROTO_IP, IP_MULTICAST_LOOP, 1) ||
        !socket.set(IPPROTO_IP, IP_MULTICAST_TTL, ttl)) {
        return "cannot join the group: " + reason();
    }
    // Differs from the magic of every search datagram.
    const std::string sent = "ORVELDOC" + std::to_string(std::random_device()());
    const sockaddr_in group = place(settings.address.bits(), settings.port);
    const auto begin = Clock::now();
    if (sendto(
            socket.get(), sent.data(), sent.size(), 0, reinterpret_cast<const sockaddr*>(&group),
            sizeof group) < 0) {
        return "cannot send: " + reason();
    }
    while (socket.wait(POLLIN, begin + kAnswerPatience)) {
        char text[64];
        const ssize_t got = recv(socket.get(), text, sizeof text, 0);
        if (got > 0 && std::string(text, static_cast<std::size_t>(got)) == sent) {
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
    const Socket socket(SOCK_STREAM);
    const sockaddr_in there = place(address.bits(), port);
    const auto begin = Clock::now();
    if (connect(socket.get(), reinterpret_cast<const sockaddr*>(&there), sizeof there) != 0 &&
        (errno != EINPROGRESS || !socket.wait(POLLOUT, begin + kAnswerPatience))) {
        return false;
    }
    int error = 0;
    socklen_t size = sizeof error;
    getsockopt(socket.get(), SOL_SOCKET, SO_ERROR, &error, &size);
    seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    return error == 0;
}

std::string freeFor(int type, std::uint16_t port) {
    const Socket socket(type);
    const bool tcp = type == SOCK_STREAM;
    const bool good = socket.get() >= 0 && (!tcp || socket.set(SOL_SOCKET, SO_REUSEADDR, 1)) &&
                      socket.bindTo(INADDR_ANY, port) && (!tcp || listen(socket.get(), 1) == 0);
    return good ? "" : std::string(tcp ? "TCP" : "UDP") + ": " + reason();
}

std::string whoHolds(std::uint16_t port) {
    return "ss -tulpn 'sport = :" + std::to_string(port) + "' shows which one";
}

} // namespace

Findings checkMulticast(const NetworkOptions& options) {
    const Corvid::Multicast::Settings settings = settingsOf(options);
    Findings findings;
    bool works = false;
    for (const auto& [address, name] : options.chosenInterfaces()) {
        double seconds = 0.0;
        const std::string fault = tryMulticast(address, settings, seconds);
        works = works || fault.empty();
        Finding& finding = findings.emplace_back();
        finding.check = "multicast " + name;
        const std::string where = address.text() + ": ";
        if (fault.empty()) {
            finding.text = where + "a datagram sent to " + settings.address.text() + ":" +
                           std::to_string(settings.port) + " comes back, after " +
                           milliseconds(seconds);
            finding.values = {{"roundTripMs", seconds * 1e3}};
        } else {
            finding.verdict = Verdict::Warning;
            finding.text = where + fault;
            finding.advice = "servers are not found on this interface: allow UDP port " +
                             std::to_string(settings.port) +
                             " through the firewall, exclude the interface with --interface, or "
                             "name servers with --server HOST:PORT";
        }
    }
    if (findings.empty()) {
        findings.push_back(
            {"multicast",
             Verdict::Problem,
             "none of the interfaces to use is up",
             "bring one up, or choose another with --interface",
             {}});
    } else if (!works) {
        for (Finding& finding : findings) {
            finding.verdict = Verdict::Problem; // multicast works on no interface
        }
    }
    return findings;
}

Findings checkPorts(const NetworkOptions& options, const std::vector<unsigned short>& ports) {
    const Corvid::Multicast::Settings settings = settingsOf(options);
    Findings findings;
    const std::string search = std::to_string(settings.port);
    const std::string alone = freeFor(SOCK_DGRAM, settings.port);
    const Socket shared(SOCK_DGRAM);
    const bool shareable = shared.set(SOL_SOCKET, SO_REUSEADDR, 1) &&
                           shared.bindTo(settings.address.bits(), settings.port);
    findings.push_back(
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
        std::string fault = freeFor(SOCK_STREAM, port);
        const std::string udp = freeFor(SOCK_DGRAM, port);
        fault += (fault.empty() || udp.empty() ? "" : ", ") + udp;
        findings.push_back(
            {"port " + std::to_string(port),
             fault.empty() ? Verdict::Ok : Verdict::Problem,
             fault.empty() ? "TCP and UDP: free" : fault,
             fault.empty() ? ""
                           : "choose another, or stop the program that has it; " + whoHolds(port),
             {}});
    }
    return findings;
}

Findings checkServers(const NetworkOptions& options) {
    Corvid::MultiClient client(Orvel::CommandEvent::kProtocolVersion);
    client.setDiagnostic([](Corvid::MultiCommunicator::Severity, const std::string&) {});
    options.apply(client.multicast());
    client.setConnecting(false);
    client.setSearchInterval(kSearchInterval);
    client.open();
    const auto end = Clock::now() + kSearch;
    while (Clock::now() < end) {
        client.waitForCommunicators(end - Clock::now());
    }
    Findings findings;
    std::size_t tried = 0;
    for (const auto& server : client.foundServers()) {
        Finding& finding = findings.emplace_back();
        finding.check = "server " + server.address.text() + ":" + std::to_string(server.port);
        finding.text = "id " + std::to_string(server.id);
        finding.text += ", its clock at " + clockText(server.clockSeconds);
        finding.values = {{"id", server.id}, {"clockSeconds", server.clockSeconds}};
        if (server.roundTripSeconds >= 0.0) {
            finding.text += ", answers in " + milliseconds(server.roundTripSeconds);
            finding.values.emplace_back("roundTripMs", server.roundTripSeconds * 1e3);
        }
        double seconds = 0.0;
        if (tried++ >= kMostServersTried) {
            continue;
        }
        if (!reach(server.address, server.port, seconds)) {
            finding.verdict = Verdict::Problem;
            finding.text += ", but its TCP port cannot be reached";
            finding.advice = "allow TCP port " + std::to_string(server.port) +
                             " through the firewalls; orvel serve --tcp-port keeps it the same";
        } else {
            finding.text += ", takes connections in " + milliseconds(seconds);
            finding.values.emplace_back("connectMs", seconds * 1e3);
            if (server.roundTripSeconds > kLongRoundTrip) {
                finding.verdict = Verdict::Warning;
                finding.advice = "the network is slow or busy; movement arrives late";
            }
        }
    }
    if (findings.empty()) {
        findings.push_back(
            {"servers",
             Verdict::Ok,
             "none answers",
             "if one should be running, run orvel servers to see possible reasons",
             {}});
    }
    return findings;
}

Finding checkDescriptors() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    Finding finding{
        "open files",
        Verdict::Ok,
        "this process may open " + std::to_string(limit.rlim_cur) + " files, and raise that to " +
            std::to_string(limit.rlim_max) + "; each connection needs one",
        {},
        {{"soft", static_cast<double>(limit.rlim_cur)},
         {"hard", static_cast<double>(limit.rlim_max)}}};
    if (limit.rlim_cur < kFewDescriptors) {
        finding.verdict = Verdict::Warning;
        finding.advice = "raise it with ulimit -n 1024, or with LimitNOFILE for a service";
    }
    return finding;
}

} // namespace OrvelTool
