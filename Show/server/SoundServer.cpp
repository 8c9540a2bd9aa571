#include <Show/server/SoundServer.h>

#include <Show/player/StartFrames.h>

#include <Corvid/Communicator.h>
#include <Corvid/MultiServer.h>
#include <Orvel/CommandEvent.h>
#include <Orvel/Emitter.h>
#include <Orvel/EmitterParamEvent.h>
#include <Orvel/Source.h>
#include <Orvel/SourceDurationEvent.h>
#include <Orvel/SourceParamEvent.h>

#include <algorithm>
#include <cmath>
#include <iterator>

namespace Show {

namespace {

constexpr unsigned kEventsBetweenLooks = 64; // between two reads of the clock
constexpr std::size_t kMaxReports = 100;     // until they are taken
constexpr std::chrono::milliseconds kPitchInterval{50};

std::int64_t nanosecondsOf(std::chrono::steady_clock::time_point time) {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(time.time_since_epoch()).count();
}

std::string nameOf(const Corvid::Communicator& client) {
    const auto counters = client.counters();
    return "client " + counters.peer +
           (counters.peerId == 0 ? "" : ", id " + std::to_string(counters.peerId) + ",");
}

} // namespace

SoundServer::SoundServer(const LoadedScene& bank, unsigned short port, const std::string& host)
    : OwningWorld(host, port), session_(*this, bank), held_(*this, session_) {}

void SoundServer::serve(std::chrono::steady_clock::duration atMost) {
    const auto now = Clock::now();
    sliceEnd_ = now + atMost;
    if (now >= pitchAgain_ && keepsTime()) {
        pitchAgain_ = now + kPitchInterval;
        const StartFrames frames(*this);
        for (const Orvel::VoicesBackend* backend : frames.backends()) {
            const Orvel::FrameClock clock = backend->frameClock();
            if (clock.hasDevice && clock.rate > 0.0) {
                if (std::exchange(nominalRate_, clock.nominalRate) != clock.nominalRate) {
                    pitchHold_.restart(); // its frames cannot be compared with those before
                }
                const double played = clock.frameAt(now) / clock.nominalRate;
                holdPitch(
                    played - std::chrono::duration<double>(now.time_since_epoch()).count(), played);
                break;
            }
        }
    }
    receive(false);
    if (held_.isOver(now)) {
        endHeld();
    }
}

void SoundServer::holdPitch(double lead, double frames) {
    if (!keepsTime()) {
        return;
    }
    const bool isNew = pitchHold_.update(lead - clockDrifted_, frames, followDriverClock());
    if (const double move = pitchHold_.takeMove(); move != 0.0) {
        const bool anyPlays = std::ranges::any_of(emitters(), [](const auto& entry) {
            return entry.second->state() == Orvel::Emitter::PLAY;
        });
        if (anyPlays) {
            report(
                "sounds were " + std::to_string(std::lround(std::abs(move) * 1000.0)) + " ms " +
                (move > 0.0 ? "late" : "early") + ", and have been moved");
        }
        for (Orvel::Backend* backend : backends()) {
            if (auto* voices = dynamic_cast<Orvel::VoicesBackend*>(backend)) {
                voices->moveSounds(move);
            }
        }
    }
    if (!isNew) {
        return;
    }
    for (const auto& [id, source] : sources()) {
        if (source->state() == Orvel::Source::PLAY) {
            const float own = pitches_.try_emplace(id, source->pitch()).first->second;
            source->setParam(source->loop(), own * static_cast<float>(pitchHold_.factor()));
        }
    }
}

double SoundServer::followDriverClock() {
    bool isSame = true;
    if (driver_ != nullptr && knowsClockOf(*driver_) && driver_->clock().known) {
        driverClock_ = driver_->clock();
        isSame = std::exchange(followed_, driverInstance_) == driverInstance_;
    } // else the latest estimate holds, as it does for the scene of a lost driver
    if (!driverClock_.known) {
        return 0.0;
    }
    const std::int64_t now = nanosecondsOf(Clock::now());
    const double ahead = static_cast<double>(driverClock_.peerTime(now) - now) * 1e-9;
    const double step = ahead - std::exchange(clockAhead_, ahead);
    if (isSame) { // sounds follow a better estimate, too
        clockDrifted_ += step;
    }
    return driverClock_.deviation;
}

void SoundServer::holdPitchOf(Orvel::SourceParamEvent& event) {
    pitches_[event.objectId] = event.pitch;
    event.pitch *= static_cast<float>(pitchHold_.factor());
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
    continues_ = isItself;
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
        if (command->command == Orvel::CmdResetBackend && held_.isHeld()) {
            tap_->lost(held_.driver());
        }
        tap_->received(event, from.counters().peer);
    }
    if (held_.isWanted() && merge(*command, from)) {
        return true;
    }
    if (command->command == Orvel::CmdResetBackend) {
        pitches_.clear(); // the session restores them
        forgetOwn();
        pitchHold_.restart();
    } else if (command->command == Orvel::CmdDestroySource) {
        pitches_.erase(command->objectId); // likewise
    }
    const Orvel::Source* kept =
        command->command == Orvel::CmdCreateSource ? getSource(command->objectId) : nullptr;
    if (!session_.intercept(
            *command, [&from] { return from.counters().peer; }, false)) {
        noteStarts(*command, from);
        if (auto* param = dynamic_cast<Orvel::EmitterParamEvent*>(&event)) {
            if (gain_ != 1.0F) {
                gains_[param->objectId] = param->gain;
                param->gain *= gain_;
            }
        } else if (auto* sound = dynamic_cast<Orvel::SourceParamEvent*>(&event)) {
            if (const Orvel::Source* source = getSource(sound->objectId)) {
                held_.pitchChanged(
                    *source, timeOf(from), pitchOf(*source), static_cast<double>(sound->pitch));
            }
            holdPitchOf(*sound);
        }
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

SoundServer::Lead SoundServer::lead() {
    const StartFrames::Lead lead = StartFrames(*this).lead();
    return {lead.start, lead.value};
}

std::chrono::nanoseconds SoundServer::beginDue(Clock::time_point due, Clock::time_point arrived) {
    due_ = due;
    StartFrames frames(*this);
    auto lateness = renderTo_ ? renderTo_(due) : OwningWorld::beginDue(due, arrived);
    behind_ = frames.empty() ? std::chrono::duration<double>(lateness).count() : 0.0;
    lateness = frames.begin(due, lateness);
    if (tap_ != nullptr) {
        tap_->setTime(due + std::max(lateness, std::chrono::nanoseconds::zero()));
    }
    return lateness;
}

std::vector<Orvel::Emitter*> SoundServer::startedBy(const Orvel::CommandEvent& event) {
    std::vector<Orvel::Emitter*> started;
    if (event.command == Orvel::CmdPlayEmitter) {
        started.push_back(getEmitter(event.objectId));
    } else if (event.command == Orvel::CmdPlaySource) {
        if (const Orvel::Source* source = getSource(event.objectId)) {
            for (const auto& [id, emitter] : source->connectedEmitters()) {
                started.push_back(emitter);
            }
        }
    }
    std::erase_if(started, [](const Orvel::Emitter* emitter) {
        return emitter == nullptr || emitter->source() == nullptr ||
               emitter->state() == Orvel::Emitter::PLAY;
    });
    return started;
}

void SoundServer::noteStarts(const Orvel::CommandEvent& event, Corvid::Communicator& from) {
    if (behind_ <= 0.0 && !held_.isWanted()) {
        return;
    }
    for (Orvel::Emitter* emitter : startedBy(event)) {
        const double pitch = pitchOf(*emitter->source());
        held_.started(*emitter, timeOf(from), pitch);
        const bool goesOn =
            emitter->state() == Orvel::Emitter::PAUSE && emitter->startOffset() <= 0.0;
        if (behind_ > 0.0 && !goesOn) {
            const double offset =
                offsets_.try_emplace(emitter->id(), emitter->startOffset()).first->second;
            emitter->setStartOffset(offset + behind_ * pitch);
        }
    }
}

double SoundServer::pitchOf(const Orvel::Source& source) const {
    return static_cast<double>(receivedPitch(source));
}

std::int64_t SoundServer::timeOf(const Corvid::Communicator& client) const {
    const std::int64_t own = nanosecondsOf(due_.value_or(Clock::now()));
    const Corvid::PeerClock clock = client.clock();
    return clock.known ? clock.peerTime(own) : own;
}

bool SoundServer::merge(const Orvel::CommandEvent& event, Corvid::Communicator& from) {
    if (event.command == Orvel::CmdResetBackend) {
        const bool isMerged = isTimed(from) && (held_.isHeld() || std::exchange(continues_, false));
        if (isMerged) {
            held_.beginMerge();
        } else {
            held_.replace();
        }
        return isMerged;
    }
    if (!held_.isMerging()) {
        return false;
    }
    const Orvel::Emitter* emitter = getEmitter(event.objectId);
    const Orvel::Source* source = emitter == nullptr ? nullptr : emitter->source();
    return held_.merge(
        event, from.counters().peer, timeOf(from), source == nullptr ? 1.0 : pitchOf(*source));
}

void SoundServer::endHeld() {
    report("the scene of client " + held_.driver() + " ends: it has not returned");
    if (tap_ != nullptr) {
        tap_->lost(held_.driver());
    }
    held_.end();
    pitches_.clear();
}

void SoundServer::watcherSent(const Corvid::Event& /*event*/, Corvid::Communicator& from) {
    if (!std::exchange(clients_[&from].watches, true)) {
        report(nameOf(from) + " only watches: its key may do no more");
        informWatcher(from);
    }
}

Orvel::Emitter* SoundServer::createEmitter(const std::vector<std::string>& labels, int id) {
    Orvel::Emitter* emitter = OwningWorld::createEmitter(labels, id);
    if (emitter != nullptr && gain_ != 1.0F) {
        gains_[emitter->id()] = emitter->gain();
        emitter->setParam(emitter->paramFlag(), emitter->paramValue(), emitter->gain() * gain_);
    }
    return emitter;
}

void SoundServer::endDue() {
    for (const auto& [id, offset] : std::exchange(offsets_, {})) {
        if (Orvel::Emitter* emitter = getEmitter(id)) {
            emitter->setStartOffset(0.0);
        }
    }
    behind_ = 0.0;
    due_.reset();
    if (tap_ != nullptr) {
        tap_->setTime(std::nullopt);
    }
    StartFrames(*this).end();
}

void SoundServer::clientLost(Corvid::Communicator& client) {
    const std::string peer = client.counters().peer;
    if (&client == driver_ && held_.isWanted() && !emitters().empty()) {
        held_.hold(peer, Clock::now());
        report("the scene of client " + peer + " goes on without it");
    } else {
        if (tap_ != nullptr) {
            tap_->lost(peer);
        }
        session_.forget(peer);
    }
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
    if (session_.intercept(event, name, true)) {
        return true;
    }
    // Local input gives the gain as it is here, and an unchanged pitch too.
    auto* sound = dynamic_cast<Orvel::SourceParamEvent*>(&event);
    const Orvel::Source* source = getSource(event.objectId);
    if (sound != nullptr && source != nullptr && sound->pitch != source->pitch()) {
        holdPitchOf(*sound);
    }
    const bool applied = dispatchEvent(&event);
    noteOwn(event);
    return applied;
}

void SoundServer::noteOwn(const Orvel::CommandEvent& event) {
    using Kind = Orvel::CheckEvent::Kind;
    const int id = event.objectId;
    if (Orvel::concernsEmitter(event.command)) {
        own_.emplace(Kind::Emitter, id);
        const Orvel::Emitter* emitter = getEmitter(id);
        if (emitter != nullptr && emitter->source() != nullptr) { // their states spread
            own_.emplace(Kind::Source, emitter->source()->id());
        }
    } else if (event.command >= Orvel::CmdCreateSource) {
        own_.emplace(Kind::Source, id);
    } else {
        own_.emplace(
            event.command == Orvel::CmdSetListenerTransform ? Kind::Listener : Kind::Switch, 0);
    }
}

void SoundServer::forgetOwn() {
    using Kind = Orvel::CheckEvent::Kind;
    const auto isLocal = [this](int emitter) { return session_.isLocal(emitter); };
    std::erase_if(own_, [&](const auto& part) {
        if (part.first != Kind::Source) {
            return part.first != Kind::Emitter || !isLocal(part.second);
        }
        const Orvel::Source* source = getSource(part.second);
        return source == nullptr ||
               std::ranges::none_of(source->connectedEmitters(), [&](const auto& entry) {
                   return isLocal(entry.first);
               });
    });
}

bool SoundServer::isOwn(Orvel::CheckEvent::Kind kind, int id) const {
    if (own_.empty()) {
        return false;
    }
    if (own_.contains({kind, id})) {
        return true;
    }
    // Emitters have the state of their source.
    const auto emitter =
        kind == Orvel::CheckEvent::Kind::Emitter ? emitters().find(id) : emitters().end();
    return emitter != emitters().end() && emitter->second->source() != nullptr &&
           own_.contains({Orvel::CheckEvent::Kind::Source, emitter->second->source()->id()});
}

float SoundServer::receivedGain(const Orvel::Emitter& emitter) const {
    const auto own = gains_.find(emitter.id());
    return own == gains_.end() ? emitter.gain() : own->second;
}

float SoundServer::receivedPitch(const Orvel::Source& source) const {
    const auto own = pitches_.find(source.id());
    return own == pitches_.end() ? source.pitch() : own->second;
}

std::vector<std::string> SoundServer::takeReports() {
    std::vector<std::string> reports = session_.takeRefusals();
    std::move(reports_.begin(), reports_.end(), std::back_inserter(reports));
    reports_.clear();
    return reports;
}

} // namespace Show
