#include <Corvid/detail/net/Connector.h>

#include <algorithm>
#include <cmath>
#include <netdb.h>
#include <netinet/in.h>
#include <random>
#include <system_error>
#include <thread>

namespace Corvid::detail {

namespace {

using namespace std::chrono_literals;
using Severity = MultiCommunicator::Severity;

constexpr auto kTimeToConnect = 3s;
constexpr double kMinInterval = 0.05;
constexpr double kMaxInterval = 86400.0;
constexpr std::size_t kMaxOtherVersions = 1024; // that are reported, and so for the next
constexpr std::size_t kMaxClosed = 1024;
constexpr std::size_t kMaxEndpoints = 8; // of one server
constexpr std::size_t kMaxAttempts = 64;
constexpr int kMaxClockAnswers = 800; // to one server in a second

std::string targetOf(std::uint64_t instance) {
    return "#" + std::to_string(instance); // no host name starts so
}

std::string targetOf(const std::string& host, std::uint16_t port) {
    return host + ":" + std::to_string(port);
}

/// Unpredictable for anyone who has not received the query. 0 means none.
std::uint32_t newNonce() {
    return std::random_device()() | 1U;
}

std::chrono::steady_clock::duration seconds(double value) {
    return std::chrono::duration_cast<std::chrono::steady_clock::duration>(
        std::chrono::duration<double>(value));
}

} // namespace

Connector::Connector(Hub& hub, const Multicast& multicast)
    : hub_(hub), discovery_(hub.loop(), multicast, [this](const Discovery::Arrival& arrival) {
          heard(arrival);
      }) {
    discovery_.setClockHandler(
        [this](const Discovery::ClockArrival& arrival) { answerClock(arrival); });
}

void Connector::setKeys(const std::shared_ptr<Keyring>& ring) {
    discovery_.setKeys(ring, [](const InetAddress& /*sender*/) {}); // another show's, or none
}

// From any thread

void Connector::setSearchInterval(double seconds) {
    interval_ = std::isnan(seconds) ? MultiClient::kDefaultSearchInterval
                                    : std::clamp(seconds, kMinInterval, kMaxInterval);
    hub_.context()->nudge();
}

void Connector::setMeasuredQueries(int count) {
    constexpr int kLeast = MultiClient::kDefaultMeasuredQueries;
    constexpr int kMost = MultiClient::kMaxMeasuredQueries;
    measuredQueries_ = std::clamp(count, kLeast, kMost);
}

void Connector::setServerIds(std::vector<short> ids) {
    const Vessa::Lock lock(mutex_);
    serverIds_ = std::move(ids);
}

bool Connector::isWanted(short id) const {
    const Vessa::Lock lock(mutex_);
    return serverIds_.empty() ||
           std::find(serverIds_.begin(), serverIds_.end(), id) != serverIds_.end();
}

void Connector::want(const std::string& host, std::uint16_t port, bool wanted) {
    {
        const Vessa::Lock lock(mutex_);
        if (wanted) {
            wanted_.emplace(host, port);
        } else {
            wanted_.erase({host, port});
        }
    }
    wantedChanged_ = true;
    hub_.context()->nudge();
}

std::vector<MultiClient::FoundServer> Connector::foundServers() const {
    const Vessa::Lock lock(mutex_);
    return publishedServers_;
}

std::vector<MultiClient::SearchedInterface> Connector::searchedInterfaces() const {
    const Vessa::Lock lock(mutex_);
    return publishedInterfaces_;
}

void Connector::publish() {
    std::vector<MultiClient::FoundServer> servers;
    for (const auto& [instance, found] : found_) {
        servers.push_back(found.server);
        servers.back().connected = connected_.contains(instance);
    }
    auto interfaces = discovery_.interfaces();
    const Vessa::Lock lock(mutex_);
    publishedServers_.swap(servers);
    publishedInterfaces_.swap(interfaces);
}

// Searching

Connector::Clock::time_point Connector::serve(Clock::time_point now) {
    if (stopped_) {
        return Clock::time_point::max();
    }
    if (wantedChanged_.exchange(false)) {
        takeWanted();
    }
    takeLookUps();
    if (const double interval = interval_; std::exchange(usedInterval_, interval) != interval) {
        searchAgain_ = now + seconds(usedInterval_);
    }
    if (discovery_.isOutdated() || now >= searchAgain_) {
        search(now);
    }
    return std::min(searchAgain_, endLateAttempts(now));
}

void Connector::search(Clock::time_point now) {
    searchAgain_ = now + seconds(usedInterval_);
    discovery_.refresh();
    const int measured = measuredQueries_;
    searched_ = Clock::now();
    queries_.push_back({++sent_, newNonce(), searched_});
    while (queries_.size() > static_cast<std::size_t>(measured)) {
        queries_.pop_front();
    }
    const auto forget = searched_ - (measured + 1) * seconds(usedInterval_);
    std::erase_if(found_, [&](const auto& entry) { return entry.second.heard < forget; });
    for (auto& [instance, found] : found_) {
        found.endpoints.clear(); // the answers contain the current ones
        found.tried = 0;
        measure(found);
    }
    const Greeting self = hub_.greeting();
    discovery_.send(
        {self.version, DiscoveryDatagram::Kind::Query, self.instance, self.id, 0,
         queries_.back().nonce, 0},
        queries_.size());
    for (const auto& [target, named] : named_) {
        tryNamed(target);
    }
    publish();
}

/// Answers must come to this side's own address and belong to its query, and announcements must
/// come to the group: a stranger must not get the scene by sending a datagram.
bool Connector::isAskedFor(const Discovery::Arrival& arrival) const {
    const DiscoveryDatagram& datagram = arrival.datagram;
    if (arrival.toGroup) {
        return datagram.kind == DiscoveryDatagram::Kind::Announce && discovery_.isInReach(arrival);
    }
    return queryOf(datagram) != nullptr;
}

/// The measured query that a datagram answers; null if there is none.
const Connector::Query* Connector::queryOf(const DiscoveryDatagram& answer) const {
    const auto query = std::ranges::find(queries_, answer.nonce, &Query::nonce);
    return answer.kind == DiscoveryDatagram::Kind::Answer && query != queries_.end() ? &*query
                                                                                     : nullptr;
}

/// Brings what is known of the network to a server up to date with the measured queries.
void Connector::measure(Found& found) const {
    if (found.firstAnswered == 0) {
        return;
    }
    const std::uint64_t first = queries_.front().number;
    auto& answers = found.answers;
    std::erase_if(answers, [first](const Answer& answer) { return answer.number < first; });
    MultiClient::FoundServer& server = found.server;
    server.queries = static_cast<int>(sent_ + 1 - std::max(first, found.firstAnswered));
    server.answers = static_cast<int>(answers.size());
    const auto at = [&answers](std::size_t index) {
        return answers.empty() ? -1.0 : answers[index].seconds;
    };
    server.leastRoundTripSeconds = at(0);
    server.usualRoundTripSeconds = at((answers.size() * 19 + 19) / 20 - 1);
    server.greatestRoundTripSeconds = at(answers.size() - 1);
}

/// Makes room for one more server at this address by forgetting one that has not answered the
/// latest search, or cannot be reached. Returns false if there is none.
bool Connector::makeRoom(const InetAddress& address) {
    const auto isThere = [&](const auto& entry) { return entry.second.server.address == address; };
    const bool many =
        static_cast<std::size_t>(std::count_if(found_.begin(), found_.end(), isThere)) >=
        hub_.maxPerAddress;
    if (!many && found_.size() < maxFound_) {
        return true;
    }
    for (auto entry = found_.begin(); entry != found_.end(); ++entry) {
        const Found& found = entry->second;
        const bool lost =
            found.heard < searched_ || (found.tried > 0 && found.tried == found.endpoints.size());
        if (lost && !found.busy && !connected_.contains(entry->first) &&
            (!many || isThere(*entry))) {
            found_.erase(entry);
            return true;
        }
    }
    return false;
}

void Connector::heard(const Discovery::Arrival& arrival) {
    using Kind = DiscoveryDatagram::Kind;
    const auto& [datagram, sender, toGroup, link, seal, when] = arrival;
    if (datagram.kind == Kind::Query && toGroup) {
        return; // another client's, or our own
    }
    if (!isAskedFor(arrival)) {
        discovery_.countIgnored();
        return;
    }
    const Socket::Endpoint endpoint{sender.address, datagram.port};
    const Greeting self = hub_.greeting();
    if (datagram.version != self.version) {
        if (otherVersions_.size() < kMaxOtherVersions &&
            otherVersions_.insert(datagram.instance).second) {
            hub_.reportRefusal(
                "the server at " + endpoint.text() + " speaks version " +
                std::to_string(datagram.version) + " of the protocol, this program version " +
                std::to_string(self.version) + "; use the same release on both");
        }
        return;
    }
    if (!found_.contains(datagram.instance) && !makeRoom(sender.address)) {
        discovery_.countIgnored();
        return;
    }
    Found& found = found_[datagram.instance];
    found.heard = Clock::now();
    MultiClient::FoundServer& server = found.server;
    server.instance = datagram.instance;
    server.id = datagram.id;
    server.address = sender.address;
    server.port = datagram.port;
    server.interface = link.address;
    server.clockSeconds = static_cast<double>(datagram.clock) * 1e-6;
    if (const Query* query = queryOf(datagram); query != nullptr) {
        const std::chrono::duration<double> roundTrip = std::max(when - query->sent, 0ns);
        server.roundTripSeconds = roundTrip.count();
        auto& answers = found.answers;
        if (std::ranges::count(answers, query->number, &Answer::number) == 0) {
            const auto place =
                std::ranges::upper_bound(answers, roundTrip.count(), {}, &Answer::seconds);
            answers.insert(place, {query->number, roundTrip.count()});
            // Answers may overtake each other.
            found.firstAnswered = found.firstAnswered == 0
                                      ? query->number
                                      : std::min(found.firstAnswered, query->number);
            measure(found);
        }
    }
    auto& endpoints = found.endpoints;
    if (std::count(endpoints.begin(), endpoints.end(), endpoint) == 0 &&
        endpoints.size() < kMaxEndpoints) {
        endpoints.push_back(endpoint);
    }
    if (datagram.kind == Kind::Announce) {
        found.tried = 0;
    }
    tryNext(datagram.instance);
    publish();
}

// Connecting

void Connector::tryNext(std::uint64_t instance) {
    const auto entry = found_.find(instance);
    if (entry == found_.end() || !connecting_ || connected_.contains(instance) ||
        closed_.contains(instance) || !isWanted(entry->second.server.id)) {
        return;
    }
    Found& found = entry->second;
    if (!found.busy && found.tried < found.endpoints.size() && attempts_.size() < kMaxAttempts) {
        found.busy = true;
        connect(found.endpoints[found.tried++], targetOf(instance));
    }
}

void Connector::takeWanted() {
    std::set<std::pair<std::string, std::uint16_t>> wanted;
    {
        const Vessa::Lock lock(mutex_);
        wanted = wanted_;
    }
    std::erase_if(named_, [&](const auto& entry) {
        return !wanted.contains({entry.second.host, entry.second.port});
    });
    for (const auto& [host, port] : wanted) {
        const std::string target = targetOf(host, port);
        if (const auto [entry, isNew] = named_.try_emplace(target); isNew) {
            entry->second.host = host;
            entry->second.port = port;
            tryNamed(target);
        }
    }
}

void Connector::tryNamed(const std::string& target) {
    Named& named = named_.at(target);
    if (!named.busy && !connected_.contains(named.instance)) {
        named.busy = true;
        lookUp(named);
    }
}

void Connector::lookUp(Named& named) {
    named.lookUp = std::make_shared<LookUp>();
    // The system's look-up may take many seconds and cannot be cancelled.
    const auto work = [result = named.lookUp, context = hub_.context(), host = named.host,
                       port = named.port] {
        addrinfo hints = {};
        hints.ai_family = AF_INET;
        hints.ai_socktype = SOCK_STREAM;
        addrinfo* found = nullptr;
        const int error = ::getaddrinfo(host.c_str(), nullptr, &hints, &found);
        {
            const Vessa::Lock lock(result->mutex);
            result->done = true;
            if (error != 0) {
                result->error = ::gai_strerror(error);
            } else {
                const auto* address = reinterpret_cast<const sockaddr_in*>(found->ai_addr);
                result->endpoint = {InetAddress::fromBits(ntohl(address->sin_addr.s_addr)), port};
            }
        }
        if (error == 0) {
            ::freeaddrinfo(found);
        }
        context->nudge();
    };
    if (InetAddress::getByAddress(named.host).isValid()) {
        work();
        return;
    }
    try {
        std::thread(work).detach();
    } catch (const std::system_error& error) {
        const Vessa::Lock lock(named.lookUp->mutex);
        named.lookUp->done = true;
        named.lookUp->error = error.what();
    }
}

void Connector::takeLookUps() {
    for (auto& [target, named] : named_) {
        if (!named.lookUp) {
            continue;
        }
        std::optional<Socket::Endpoint> endpoint;
        std::string error;
        {
            const Vessa::Lock lock(named.lookUp->mutex);
            if (!named.lookUp->done) {
                continue;
            }
            endpoint = named.lookUp->endpoint;
            error = named.lookUp->error;
        }
        named.lookUp = nullptr;
        if (endpoint) {
            connect(*endpoint, target);
        } else {
            failed(target, error);
        }
    }
}

void Connector::connect(const Socket::Endpoint& endpoint, const std::string& target) {
    const auto entry = attempts_.insert(attempts_.end(), Attempt());
    entry->target = target;
    entry->deadline = Clock::now() + kTimeToConnect;
    std::error_code error = entry->socket.open(Socket::Type::Stream);
    if (!error) {
        error = entry->socket.connect(endpoint);
    }
    if (error) {
        finish(entry, error.message());
        return;
    }
    entry->watch = Loop::Watch(hub_.loop(), entry->socket, [this, entry](auto) {
        const std::error_code outcome = entry->socket.takeError();
        finish(entry, outcome ? outcome.message() : "");
    });
    entry->watch.want(false, true); // if the system refuses, the attempt ends at its deadline
}

/// Ends an attempt; `error` is empty if it is connected.
void Connector::finish(std::list<Attempt>::iterator attempt, const std::string& error) {
    Socket socket = std::move(attempt->socket);
    const std::string target = attempt->target;
    attempts_.erase(attempt);
    if (error.empty()) {
        hub_.adopt(std::move(socket), target);
    } else {
        failed(target, error);
    }
}

Connector::Clock::time_point Connector::endLateAttempts(Clock::time_point now) {
    while (!attempts_.empty() && now >= attempts_.front().deadline) {
        finish(attempts_.begin(), "it does not answer");
    }
    return attempts_.empty() ? Clock::time_point::max() : attempts_.front().deadline;
}

void Connector::failed(const std::string& target, const std::string& reason) {
    if (const auto entry = named_.find(target); entry != named_.end()) {
        Named& named = entry->second;
        named.busy = false;
        if (std::exchange(named.lastError, reason) != reason) {
            hub_.report(
                Severity::Warning, "cannot reach the server " + target + ": " + reason +
                                       "; trying again until it can be reached");
        }
        return;
    }
    for (auto& [instance, found] : found_) {
        if (targetOf(instance) == target) {
            found.busy = false;
            tryNext(instance); // it may have been found on other interfaces
            return;
        }
    }
}

bool Connector::accept(Connection& connection) {
    const std::uint64_t instance = connection.peer().instance;
    const std::string& target = connection.target();
    if (const auto entry = named_.find(target); entry != named_.end()) {
        entry->second.busy = false;
        entry->second.instance = instance;
        entry->second.lastError.clear();
    }
    for (auto& [other, found] : found_) {
        found.busy = found.busy && targetOf(other) != target;
    }
    if ((connection.peer().features & Greeting::kNotAdmitted) != 0) {
        if (closed_.size() < kMaxClosed && closed_.insert(instance).second) {
            hub_.report(
                Severity::Warning, "the server at " + connection.peerName() +
                                       " does not take connections from this machine's address");
        }
        return false;
    }
    // A socket may connect to itself if no one listens on a local port.
    if (instance == hub_.greeting().instance || connected_.contains(instance)) {
        return false;
    }
    connected_[instance] = &connection;
    offerClock(connection);
    publish();
    return true;
}

void Connector::lost(Connection& connection) {
    const auto entry = connected_.find(connection.peer().instance);
    if (entry != connected_.end() && entry->second == &connection) {
        connected_.erase(entry);
        askers_.erase(connection.clockOffer().nonce);
    } else { // it was never accepted; the next search tries again
        const auto named = named_.find(connection.target());
        if (named != named_.end()) {
            named->second.busy = false;
        }
        for (auto& [instance, found] : found_) {
            found.busy = found.busy && targetOf(instance) != connection.target();
        }
    }
    publish();
}

// Clocks

void Connector::offerClock(Connection& connection) {
    std::random_device device;
    Communicator::ClockOffer offer;
    offer.nonce = (std::uint64_t{device()} << 32U | device()) | 1U;
    if (const auto* link = discovery_.linkAt(connection.socket().own().address)) {
        offer.port = link->own.own().port;
    }
    askers_[offer.nonce] = {connection.peerAddress(), Clock::now(), 0};
    connection.setClockOffer(offer);
}

void Connector::answerClock(const Discovery::ClockArrival& arrival) {
    const auto asker = std::ranges::find_if(askers_, [&](const auto& entry) {
        return entry.second.address == arrival.sender.address &&
               arrival.datagram.kind == ClockDatagram::Kind::Question &&
               ClockDatagram::isFrom(arrival.bytes, entry.first);
    });
    if (asker == askers_.end()) {
        discovery_.countIgnored();
        return;
    }
    if (arrival.when >= asker->second.period + 1s) {
        asker->second.period = arrival.when;
        asker->second.answers = 0;
    }
    if (++asker->second.answers > kMaxClockAnswers) {
        discovery_.countIgnored();
        return;
    }
    ClockDatagram answer = arrival.datagram;
    answer.version = hub_.greeting().version;
    answer.kind = ClockDatagram::Kind::Answer;
    answer.received = ClockProbe::nanoseconds(arrival.when);
    answer.sent = ClockProbe::nanoseconds(Clock::now());
    Discovery::send(arrival.link, answer.encode(asker->first), arrival.sender);
}

void Connector::stop() {
    stopped_ = true;
    discovery_.stop();
    attempts_.clear();
}

} // namespace Corvid::detail
