#include <Show/server/SoundServer.h>

#include <Corvid/Communicator.h>
#include <Corvid/MultiServer.h>
#include <Orvel/CommandEvent.h>
#include <Orvel/Source.h>
#include <Orvel/SourceDurationEvent.h>

#include <iterator>

namespace Show {

namespace {

constexpr unsigned kEventsBetweenLooks = 64; // between two reads of the clock
constexpr std::size_t kMaxReports = 100;     // until they are taken

std::string nameOf(const Corvid::Communicator& client) {
    const auto counters = client.counters();
    return "client " + counters.peer +
           (counters.peerId == 0 ? "" : ", id " + std::to_string(counters.peerId) + ",");
}

} // namespace

SoundServer::SoundServer(const LoadedScene& bank, unsigned short port, const std::string& host)
    : OwningWorld(host, port), session_(*this, bank) {}

void SoundServer::serve(std::chrono::steady_clock::duration atMost) {
    sliceEnd_ = std::chrono::steady_clock::now() + atMost;
    receive(false);
}

void SoundServer::report(std::string text) {
    if (reports_.size() < kMaxReports) {
        reports_.push_back(std::move(text));
    }
}

void SoundServer::inform(
    Corvid::Communicator& client, Orvel::DriverEvent::State state, const std::string& text) {
    if ((client.features() & Orvel::DriverEvent::kFeature) != 0) {
        Orvel::DriverEvent event;
        event.address(Orvel::CmdReportDriver, 0);
        event.state = state;
        event.text = text;
        event.send(&client);
    }
}

bool SoundServer::countReset() {
    const auto now = Clock::now();
    if (now - resetsSince_ > kResetPeriod) {
        resetsSince_ = now;
        resets_ = 0;
    }
    return ++resets_ <= kMaxResets;
}

bool SoundServer::begin(const Orvel::CommandEvent& event, Corvid::Communicator& from) {
    Client& client = clients_[&from];
    const bool first = !std::exchange(client.began, true);
    if (client.dropped || event.command != Orvel::CmdResetBackend) {
        return false;
    }
    const std::uint64_t instance = from.counters().peerInstance;
    const bool isItself = driver_ != nullptr && instance == driverInstance_;
    const bool takesOver = first && (isItself || (!keepPlayer_ && !replaced_.contains(instance)));
    if (driver_ != nullptr && !takesOver) {
        if (!std::exchange(client.waits, true) || first) {
            const std::string text = nameOf(*driver_) + " drives it";
            inform(
                from, Orvel::DriverEvent::Refused,
                text + (keepPlayer_ ? ", and it keeps its player" : ""));
            report(nameOf(from) + " is refused: " + text);
        }
        return false;
    }
    if (driver_ != nullptr && !isItself) {
        const std::string text = nameOf(from) + " drives now";
        report(text + ", in place of " + nameOf(*driver_));
        inform(*driver_, Orvel::DriverEvent::Replaced, text);
        clients_[driver_].waits = true;
        if (replaced_.size() < kMaxReplaced) {
            replaced_.insert(driverInstance_);
        }
    } else if (client.waits) {
        report(nameOf(from) + " drives now");
    }
    client.waits = false;
    driver_ = &from;
    driverInstance_ = instance;
    inform(from, Orvel::DriverEvent::Driving, "");
    informWatchers();
    return true;
}

bool SoundServer::interceptEvent(Corvid::Event& event, Corvid::Communicator& from) {
    if (++events_ % kEventsBetweenLooks == 0 && std::chrono::steady_clock::now() >= sliceEnd_) {
        multiServer().breakWait(); // receive() then returns before the next event
    }
    const auto* command = dynamic_cast<const Orvel::CommandEvent*>(&event);
    if (command == nullptr) {
        return false;
    }
    if (&from != driver_ && !begin(*command, from)) {
        return true;
    }
    if (command->command == Orvel::CmdResetBackend && !countReset()) {
        report(
            nameOf(from) + " is dropped: more than " + std::to_string(kMaxResets) + " resets in " +
            std::to_string(kResetPeriod.count()) + " s");
        clients_[&from].dropped = true;
        from.close();
        free();
        return true;
    }
    if (tap_ != nullptr) {
        tap_->received(event, from.counters().peer);
    }
    const Orvel::Source* kept =
        command->command == Orvel::CmdCreateSource ? getSource(command->objectId) : nullptr;
    if (!session_.intercept(
            *command, [&from] { return from.counters().peer; }, false)) {
        return false;
    }
    if (kept != nullptr && kept->duration() > 0.0F) {
        // Back ends have measured it for an earlier client.
        Orvel::SourceDurationEvent duration;
        duration.address(Orvel::CmdSetSourceDuration, kept->id());
        duration.duration = kept->duration();
        duration.send(&from);
    }
    return true;
}

void SoundServer::informWatcher(Corvid::Communicator& client) {
    inform(
        client, Orvel::DriverEvent::Refused,
        "its key may only watch; " +
            (driver_ != nullptr ? nameOf(*driver_) + " drives it" : "no one drives it"));
}

void SoundServer::informWatchers() {
    for (const auto& [other, state] : clients_) {
        if (state.watches) {
            informWatcher(*other);
        }
    }
}

void SoundServer::watcherSent(const Corvid::Event& /*event*/, Corvid::Communicator& from) {
    if (!std::exchange(clients_[&from].watches, true)) {
        report(nameOf(from) + " only watches: its key may do no more");
        informWatcher(from);
    }
}

void SoundServer::clientLost(Corvid::Communicator& client) {
    const std::string peer = client.counters().peer;
    if (tap_ != nullptr) {
        tap_->lost(peer);
    }
    session_.forget(peer);
    clients_.erase(&client);
    if (&client == driver_) {
        free();
    }
}

void SoundServer::free() {
    driver_ = nullptr;
    replaced_.clear();
    for (const auto& [other, state] : clients_) {
        if (state.waits) {
            inform(*other, Orvel::DriverEvent::Free, "no one drives it");
        }
    }
    informWatchers();
}

bool SoundServer::apply(Orvel::CommandEvent& event) {
    const auto name = [] { return std::string(Session::kLocalInput); };
    if (tap_ != nullptr) {
        tap_->received(event, name());
    }
    return session_.intercept(event, name, true) || dispatchEvent(&event);
}

std::vector<std::string> SoundServer::takeReports() {
    std::vector<std::string> reports = session_.takeRefusals();
    std::move(reports_.begin(), reports_.end(), std::back_inserter(reports));
    reports_.clear();
    return reports;
}

} // namespace Show
