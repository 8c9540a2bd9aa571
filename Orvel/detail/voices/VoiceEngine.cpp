#include <Orvel/detail/voices/VoiceEngine.h>

#include <Orvel/detail/al/ALCalls.h>
#include <Orvel/detail/attenuation.h>

#include <AL/al.h>
#include <algorithm>
#include <cmath>
#include <limits>

namespace Orvel::detail {

namespace {

/// How often the emitters are ranked, and unused samples are deleted, in seconds.
constexpr double kRankPeriod = 0.01;
constexpr double kSweepPeriod = 0.25;
/// How long before its frame a sound gets a voice, beside two periods of the output, in seconds. A
/// voice that starts while its sound is silent has reached its level at the frame.
constexpr double kLead = 0.02;
/// The share of the newest one in the mean delay of changes.
constexpr double kDelayShare = 0.1;
/// AL errors that are kept until they are reported; more are only counted.
constexpr std::size_t kMaxFailures = 16;

/// The time constant with which pitches follow the Doppler effect, in seconds.
constexpr double kShiftTime = 0.02;
/// The largest speed in the formula, as a part of the speed of sound.
constexpr float kMaxSpeed = 0.75F;

float dot(const Vec3f& a, const Vec3f& b) {
    return a.x * b.x + a.y * b.y + a.z * b.z;
}

float distance(const Vec3f& a, const Vec3f& b) {
    const float x = a.x - b.x;
    const float y = a.y - b.y;
    const float z = a.z - b.z;
    return std::sqrt(x * x + y * y + z * z);
}

} // namespace

void VoiceEngine::setPool(std::unique_ptr<VoicePool> pool, unsigned rate, std::int64_t now) {
    now_ = now;
    // Frames that are still to come keep their distance in time.
    const auto convert = [&](std::int64_t& frame) {
        if (frame > now && rate != rate_) {
            frame = now + std::llround(static_cast<double>(frame - now) * rate / rate_);
        }
    };
    for (const Index index : running_) {
        Emitter& emitter = emitters_[index];
        if (emitter.head.since > now) {
            convert(emitter.head.since);
        } else {
            emitter.head.moveTo(now);
        }
        emitter.voice = -1;
    }
    unmixed_ = running_.size();
    for (const Index index : expected_) {
        if (auto& frame = emitters_[index].values.transport.frame) {
            convert(*frame);
        }
    }
    if (pool_ != nullptr) {
        pastGaps_ += pool_->gaps();
    }
    pool_ = std::move(pool);
    rate_ = rate;
    for (Emitter& emitter : emitters_) {
        if (emitter.phase == Phase::Running || emitter.phase == Phase::Held) {
            setStep(emitter);
        }
    }
    if (pool_ != nullptr) {
        setListenerPlace(listener_.position, listener_.rotation);
        alListenerf(AL_GAIN, listener_.enabled ? 1.0F : 0.0F);
    }
}

void VoiceEngine::step(std::int64_t now, std::int64_t frames) {
    now_ = now;
    lead_ = std::llround(kLead * rate_) + 2 * frames;
    if (move_ != 0.0) {
        moveSounds(); // those that start now are at their positions already
    }
    takeChanges();
    for (std::size_t i = expected_.size(); i-- > 0;) {
        begin(emitters_[expected_[i]]);
    }
    endSounds();
    if (pool_ == nullptr) {
        return;
    }
    if (doppler_ > 0.0F) {
        shiftPitches();
    }
    chooseVoices();
    pool_->advance(now, frames);
    if (static_cast<double>(now - sweptAt_) >= kSweepPeriod * rate_) {
        sweptAt_ = now;
        pool_->forgetUnused();
    }
    checkAL();
}

void VoiceEngine::takeChanges() {
    bool listenerMoved = false;
    const auto age = changes_.take(
        [this](Index index, unsigned what, const EmitterValues& values) {
            if (index >= emitters_.size()) {
                emitters_.resize(index + 1);
            }
            EmitterValues& mine = emitters_[index].values;
            if ((what & SceneChanges::Place) != 0) {
                emitters_[index].movedAt = now_;
            }
            // Most changes are those of emitters that move unheard.
            constexpr unsigned kHeard = SceneChanges::Place | SceneChanges::Reach |
                                        SceneChanges::Gain | SceneChanges::Occlusion;
            if ((what & ~kHeard) == 0 && emitters_[index].voice < 0) {
                mine.voice = values.voice;
                return;
            }
            const bool wasLooping = mine.voice.loop;
            mine.id = values.id;
            mine.isShot = values.isShot;
            mine.exists = values.exists;
            mine.voice = values.voice;
            mine.transport = values.transport;
            if ((what & (SceneChanges::NewSound | SceneChanges::Created)) != 0) {
                dropped_.push_back(std::exchange(mine.sound, values.sound));
            }
            taken_.push_back({index, what, wasLooping});
        },
        [&](const ListenerValues& values) {
            listener_ = values;
            listenerMoved = true;
            listenerMovedAt_ = now_;
        });
    if (age > std::chrono::steady_clock::duration::zero()) {
        const double seconds = std::chrono::duration<double>(age).count();
        changeDelay_ += (changeDelay_ == 0.0 ? 1.0 : kDelayShare) * (seconds - changeDelay_);
    }
    for (const Change& change : taken_) {
        Emitter& emitter = emitters_[change.emitter];
        constexpr unsigned kAnew = SceneChanges::NewSound | SceneChanges::Created;
        if ((change.what & SceneChanges::Playback) != 0 && (change.what & kAnew) == 0) {
            retime(emitter, change.wasLooping);
        }
        apply(emitter, change.what);
    }
    taken_.clear();
    dropped_.clear();
    if (listenerMoved && pool_ != nullptr) {
        setListenerPlace(listener_.position, listener_.rotation);
        alListenerf(AL_GAIN, listener_.enabled ? 1.0F : 0.0F);
    }
}

void VoiceEngine::moveSounds() {
    constexpr double kMaxMove = 86400.0;
    const double seconds = std::clamp(std::exchange(move_, 0.0), -kMaxMove, kMaxMove);
    const std::int64_t frames = std::llround(seconds * rate_);
    // What began since was begun by a clock that was right already.
    const std::int64_t latest = now_ - rate_;
    for (const Index index : expected_) { // they join when they have been loaded
        if (auto& frame = emitters_[index].values.transport.frame; frame && *frame < latest) {
            *frame -= frames;
        }
    }
    for (const Index index : running_) {
        Emitter& emitter = emitters_[index];
        if (emitter.head.since > now_ || emitter.begunAt >= latest) {
            continue;
        }
        emitter.head.moveTo(now_);
        emitter.head.position += frames * emitter.head.step;
        if (emitter.head.position < 0) {
            emitter.head.since += -emitter.head.position / emitter.head.step;
            emitter.head.position = 0;
        }
        dropVoice(emitter);
        expectEnd(emitter);
    }
}

void VoiceEngine::retime(Emitter& emitter, bool wasLooping) {
    if (emitter.phase != Phase::Running && emitter.phase != Phase::Held) {
        return;
    }
    const EmitterValues& values = emitter.values;
    if (emitter.phase == Phase::Running) {
        if (emitter.head.since > now_) {
            dropVoice(emitter); // its silence would have another length
        } else {
            emitter.head.moveTo(now_);
        }
    }
    if (wasLooping != values.voice.loop) {
        if (wasLooping) {
            emitter.head.position %= lengthOf(emitter);
        }
        if (emitter.voice >= 0 && pool_->isFed(emitter.voice)) {
            dropVoice(emitter); // its data reaches beyond the seam
        }
    }
    setStep(emitter);
    if (emitter.voice >= 0) {
        pool_->setPlayback(emitter.voice, values.voice, emitter.head, emitter.shift);
    }
}

void VoiceEngine::setStep(Emitter& emitter) {
    emitter.head.step = Playhead::stepOf(
        emitter.values.voice.pitch * emitter.shift, emitter.values.sound->rate(), rate_);
    expectEnd(emitter);
}

void VoiceEngine::expectEnd(const Emitter& emitter) {
    if (!emitter.values.voice.loop) {
        const std::int64_t left = lengthOf(emitter) - emitter.head.position;
        nextEnd_ = std::min(
            nextEnd_,
            left > 0 ? emitter.head.since + left / emitter.head.step : emitter.head.since);
    }
}

float VoiceEngine::shiftOf(const Emitter& emitter) const {
    const VoiceValues& values = emitter.values.voice;
    if (!values.spatial || !emitter.values.sound->isSpatial()) {
        return 1.0F;
    }
    const Vec3f path{
        listener_.position.x - values.position.x, listener_.position.y - values.position.y,
        listener_.position.z - values.position.z};
    const float length = std::sqrt(dot(path, path));
    if (!(length > 0.0F)) {
        return 1.0F;
    }
    // The part of a velocity from the source to the listener, if it still holds.
    const auto along = [&](const Vec3f& velocity, float hold, std::int64_t since) {
        const bool holds = static_cast<float>(now_ - since) <= hold * static_cast<float>(rate_);
        const float part = holds ? doppler_ * dot(velocity, path) / length : 0.0F;
        return std::clamp(part, -kMaxSpeed * kSpeedOfSound, kMaxSpeed * kSpeedOfSound);
    };
    return (kSpeedOfSound - along(listener_.velocity, listener_.hold, listenerMovedAt_)) /
           (kSpeedOfSound - along(values.velocity, values.hold, emitter.movedAt));
}

void VoiceEngine::shiftPitches() {
    const double seconds = static_cast<double>(now_ - shiftedAt_) / rate_;
    shiftedAt_ = now_;
    const auto part = static_cast<float>(1.0 - std::exp(-seconds / kShiftTime));
    for (const Index index : running_) {
        Emitter& emitter = emitters_[index];
        if (emitter.voice < 0 || emitter.head.since > now_) {
            continue;
        }
        const float wanted = shiftOf(emitter);
        if (wanted != emitter.shift) {
            constexpr float kInaudible = 1e-5F;
            const float shift = emitter.shift + part * (wanted - emitter.shift);
            emitter.shift = std::abs(wanted - shift) < kInaudible ? wanted : shift;
            emitter.head.moveTo(now_);
            setStep(emitter);
            pool_->setPlayback(emitter.voice, emitter.values.voice, emitter.head, emitter.shift);
        }
    }
}

void VoiceEngine::apply(Emitter& emitter, unsigned what) {
    if ((what & (SceneChanges::NewSound | SceneChanges::Created)) != 0) {
        if ((what & SceneChanges::Transported) == 0 && emitter.phase != Phase::Expected &&
            emitter.phase != Phase::Idle) {
            emitter.values.transport.frame.reset(); // other samples begin at once
        }
        setPhase(emitter, Phase::Idle);
        emitter.starts = 0;
    }
    if ((what & (SceneChanges::NewSound | SceneChanges::Created | SceneChanges::Transported)) !=
        0) {
        follow(emitter);
    }
    if (emitter.voice < 0) {
        return;
    }
    const VoiceValues& values = emitter.values.voice;
    if ((what & SceneChanges::Place) != 0) {
        pool_->setPlace(emitter.voice, values);
    }
    if ((what & SceneChanges::Reach) != 0) {
        pool_->setReach(emitter.voice, values);
    }
    if ((what & SceneChanges::Gain) != 0) {
        pool_->setGain(emitter.voice, values);
    }
    if ((what & SceneChanges::Occlusion) != 0) {
        pool_->setOcclusion(emitter.voice, values);
    }
}

void VoiceEngine::follow(Emitter& emitter) {
    const Transport& wanted = emitter.values.transport;
    const bool continued = std::exchange(emitter.plays, wanted.plays) != wanted.plays;
    const bool started = std::exchange(emitter.starts, wanted.starts) != wanted.starts;
    if (started || (continued && emitter.phase == Phase::Over)) {
        setPhase(emitter, Phase::Idle);
    }
    switch (wanted.state) {
    case Transport::State::Stopped:
        setPhase(emitter, Phase::Idle);
        return;
    case Transport::State::Paused:
        if (emitter.phase == Phase::Running) {
            emitter.head.moveTo(now_);
            setPhase(emitter, Phase::Held);
        } else if (emitter.phase == Phase::Idle) {
            begin(emitter);
        }
        return;
    case Transport::State::Playing:
        if (emitter.phase == Phase::Held) {
            emitter.head.since = wanted.frame.value_or(now_);
            setPhase(emitter, Phase::Running);
        } else if (emitter.phase == Phase::Idle) {
            begin(emitter);
        }
        return;
    }
}

void VoiceEngine::begin(Emitter& emitter) {
    const EmitterValues& values = emitter.values;
    if (values.sound == nullptr) {
        return;
    }
    if (values.sound->state() != Sound::State::Ready) {
        const bool failed = values.sound->state() == Sound::State::Failed;
        setPhase(emitter, failed ? Phase::Refused : Phase::Expected);
        if (failed && values.isShot) {
            ended_.push_back({values.id, true});
        }
        return;
    }
    const double length = values.sound->seconds();
    double offset = values.transport.offset > 0.0 ? values.transport.offset : 0.0;
    if (offset >= length) {
        offset = values.voice.loop && std::isfinite(offset) ? std::fmod(offset, length) : length;
    }
    emitter.head.position = std::llround(offset * values.sound->rate()) * Playhead::kOne;
    emitter.head.since = emitter.begunAt = values.transport.frame.value_or(now_);
    emitter.shift = 1.0F;
    setStep(emitter);
    setPhase(
        emitter,
        values.transport.state == Transport::State::Playing ? Phase::Running : Phase::Held);
}

std::vector<VoiceEngine::Index>* VoiceEngine::listOf(Phase phase) {
    return phase == Phase::Running ? &running_ : phase == Phase::Expected ? &expected_ : nullptr;
}

void VoiceEngine::setPhase(Emitter& emitter, Phase phase) {
    if (phase == emitter.phase) {
        return;
    }
    if (emitter.phase == Phase::Running) {
        dropVoice(emitter);
        --unmixed_;
    }
    if (auto* list = listOf(emitter.phase)) {
        list->at(emitter.place) = list->back();
        emitters_[list->back()].place = emitter.place;
        list->pop_back();
    }
    emitter.phase = phase;
    if (auto* list = listOf(phase)) {
        emitter.place = static_cast<Index>(list->size());
        list->push_back(static_cast<Index>(&emitter - emitters_.data()));
    }
    if (phase == Phase::Running) {
        ++unmixed_;
        expectEnd(emitter);
    }
}

void VoiceEngine::dropVoice(Emitter& emitter) {
    if (emitter.voice >= 0) {
        pool_->release(emitter.voice);
        emitter.voice = -1;
        ++unmixed_;
    }
}

void VoiceEngine::endSounds() {
    if (now_ < nextEnd_) {
        return;
    }
    nextEnd_ = std::numeric_limits<std::int64_t>::max();
    for (std::size_t i = running_.size(); i-- > 0;) {
        Emitter& emitter = emitters_[running_[i]];
        if (!emitter.values.voice.loop && emitter.head.at(now_) >= lengthOf(emitter)) {
            setPhase(emitter, Phase::Over);
            ended_.push_back({emitter.values.id, emitter.values.isShot});
        } else {
            expectEnd(emitter);
        }
    }
}

float VoiceEngine::loudnessOf(const Emitter& emitter) const {
    const VoiceValues& values = emitter.values.voice;
    float loudness = values.gain;
    if (values.attenuated && emitter.values.sound->isSpatial()) {
        const float far = values.spatial ? distance(values.position, listener_.position) : 0.0F;
        loudness *= attenuation(reachOf(values.hull), far);
    }
    return std::min(loudness, 1.0F); // as OpenAL limits it
}

void VoiceEngine::startVoice(Emitter& emitter) {
    if (doppler_ > 0.0F && emitter.head.since <= now_) {
        emitter.shift = shiftOf(emitter);
        if (emitter.head.since < now_) {
            emitter.head.moveTo(now_);
        }
        setStep(emitter);
    }
    emitter.voice =
        pool_->start(emitter.values.sound, emitter.values.voice, emitter.head, emitter.shift, now_);
    if (emitter.voice >= 0) {
        --unmixed_;
    }
}

void VoiceEngine::chooseVoices() {
    if (unmixed_ == 0) {
        return;
    }
    if (running_.size() <= pool_->size()) {
        for (const Index index : running_) {
            if (emitters_[index].voice < 0 && isDue(emitters_[index])) {
                startVoice(emitters_[index]);
            }
        }
        return;
    }
    if (rankedAt_ != 0 && static_cast<double>(now_ - rankedAt_) < kRankPeriod * rate_) {
        return;
    }
    rankedAt_ = now_;
    ranking_.clear();
    for (const Index index : running_) {
        const Emitter& emitter = emitters_[index];
        if (isDue(emitter)) {
            ranking_.add(index, loudnessOf(emitter), emitter.voice >= 0);
        }
    }
    const std::size_t chosen = ranking_.choose(pool_->size());
    for (std::size_t i = chosen; i < ranking_.size(); ++i) {
        dropVoice(emitters_[ranking_.emitter(i)]);
    }
    for (std::size_t i = 0; i < chosen; ++i) {
        Emitter& emitter = emitters_[ranking_.emitter(i)];
        if (emitter.voice < 0) {
            startVoice(emitter);
        }
    }
}

void VoiceEngine::checkAL() {
    const ALenum error = alGetError();
    if (error == AL_NO_ERROR) {
        return;
    }
    ++failureCount_;
    if (failures_.size() < kMaxFailures) {
        Diagnostic failure{.code = Diagnostic::Code::OpenAL, .level = Log::Level::Fatal};
        failure.reason = errorText(error);
        failure.text = "OpenAL refuses an operation of a voice: " + failure.reason;
        failures_.push_back(std::move(failure));
    }
}

VoiceEngine::Report VoiceEngine::report(const Emitter& emitter) const {
    Report report;
    report.emitter = emitter.values.id;
    switch (emitter.phase) {
    case Phase::Idle:
    case Phase::Held:
        break;
    case Phase::Expected:
        report.hearing = Hearing::Loading;
        break;
    case Phase::Running:
        if (emitter.head.since > now_) {
            break;
        }
        report.hearing = emitter.voice >= 0 ? Hearing::Mixed : Hearing::Waiting;
        report.loudness = loudnessOf(emitter);
        break;
    case Phase::Over:
        report.hearing = Hearing::Over;
        break;
    case Phase::Refused:
        report.hearing = Hearing::Refused;
        break;
    }
    if (emitter.phase == Phase::Running || emitter.phase == Phase::Held) {
        std::int64_t position =
            emitter.phase == Phase::Held ? emitter.head.position : emitter.head.at(now_);
        if (emitter.values.voice.loop) {
            position %= lengthOf(emitter);
        }
        report.seconds = static_cast<double>(position) /
                         static_cast<double>(Playhead::kOne * emitter.values.sound->rate());
    } else if (emitter.phase == Phase::Over) {
        report.seconds = emitter.values.sound->seconds();
    }
    return report;
}

std::vector<VoiceEngine::Report> VoiceEngine::reports() const {
    std::vector<Report> all;
    for (const Emitter& emitter : emitters_) {
        if (emitter.values.exists && !emitter.values.isShot) {
            all.push_back(report(emitter));
        }
    }
    return all;
}

std::optional<VoiceEngine::Report> VoiceEngine::reportOf(std::uint32_t emitter) const {
    if (emitter >= emitters_.size() || !emitters_[emitter].values.exists) {
        return std::nullopt;
    }
    return report(emitters_[emitter]);
}

} // namespace Orvel::detail
