#pragma once

#include <Orvel/BackendState.h>
#include <Orvel/Diagnostic.h>
#include <Orvel/detail/voices/SceneChanges.h>
#include <Orvel/detail/voices/VoicePool.h>
#include <Orvel/detail/voices/VoiceRanking.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace Orvel::detail {

/// Keeps the time of every playing emitter and has the loudest ones mixed. An emitter that is not
/// mixed goes on in time, so it comes back at the position that it would have had. Without a pool,
/// that is without a device, it only keeps the time.
///
/// Confined; while there is a pool, its context is current in every call.
class VoiceEngine {
public:
    using Hearing = BackendState::Hearing;
    struct Report {
        int emitter = 0; ///< id
        Hearing hearing = Hearing::Silent;
        float loudness = 0.0F; ///< linear, at the listener
        double seconds = 0.0;  ///< position in the sound
    };

    /// Units per second.
    static constexpr float kSpeedOfSound = 343.3F;

    explicit VoiceEngine(SceneChanges& changes) : changes_(changes) {}

    /// The factor on all velocities in the Doppler effect; 0, as initially: none.
    void setDoppler(float factor) noexcept { doppler_ = factor; }

    /// Plays through a pool from the frame `now` on, or through none. `rate` is that of the frames.
    void setPool(std::unique_ptr<VoicePool> pool, unsigned rate, std::int64_t now);
    /// Applies the scene's changes and decides what is mixed in the next `frames` frames, which
    /// begin with `now`. Frames never decrease.
    void step(std::int64_t now, std::int64_t frames);

    /// Moves all sounds that play forward by so many seconds of playing, or back, at the next step.
    void move(double seconds) noexcept { move_ += seconds; }

    struct Ended {
        int id = 0;
        bool isShot = false;
    };
    /// What has ended since the last call. The sound of a shot that fails has ended, too.
    std::vector<Ended> takeEnded() { return std::exchange(ended_, {}); }
    /// OpenAL's errors since the last call.
    std::vector<Diagnostic> takeFailures() { return std::exchange(failures_, {}); }
    [[nodiscard]] std::uint64_t failureCount() const noexcept { return failureCount_; }

    /// All emitters of the scene, in no order.
    [[nodiscard]] std::vector<Report> reports() const;
    [[nodiscard]] std::optional<Report> reportOf(std::uint32_t emitter) const;
    /// Number of emitters that wait for a voice.
    [[nodiscard]] std::size_t waiting() const noexcept {
        return pool_ != nullptr && running_.size() > pool_->size() ? unmixed_ : 0;
    }
    /// How long changes of the scene wait for a step, in seconds: the mean of late.
    [[nodiscard]] double changeDelay() const noexcept { return changeDelay_; }
    /// Null without a device.
    [[nodiscard]] const VoicePool* pool() const noexcept { return pool_.get(); }
    /// Gaps of all pools.
    [[nodiscard]] std::uint64_t gaps() const noexcept {
        return pastGaps_ + (pool_ == nullptr ? 0 : pool_->gaps());
    }

private:
    using Index = std::uint32_t;
    enum class Phase { Idle, Expected, Held, Running, Over, Refused };

    struct Emitter {
        int voice = -1;
        Phase phase = Phase::Idle;
        EmitterValues values;
        Playhead head;
        unsigned starts = 0; // of the transport that has been followed
        unsigned plays = 0;
        std::int64_t movedAt = 0;
        std::int64_t begunAt = 0;
        float shift = 1.0F; // of the pitch, by the Doppler effect
        Index place = 0;    // in running_ or expected_
    };

    void takeChanges();
    void moveSounds();
    void apply(Emitter& emitter, unsigned what);
    void follow(Emitter& emitter);
    void begin(Emitter& emitter);
    void retime(Emitter& emitter, bool wasLooping);
    void setStep(Emitter& emitter);
    void expectEnd(const Emitter& emitter);
    void shiftPitches();
    [[nodiscard]] float shiftOf(const Emitter& emitter) const;
    void setPhase(Emitter& emitter, Phase phase);
    void dropVoice(Emitter& emitter);
    void endSounds();
    void chooseVoices();
    void startVoice(Emitter& emitter);
    void checkAL();
    [[nodiscard]] float loudnessOf(const Emitter& emitter) const;
    [[nodiscard]] Report report(const Emitter& emitter) const;
    [[nodiscard]] std::int64_t lengthOf(const Emitter& emitter) const {
        return emitter.values.sound->frames() * Playhead::kOne;
    }
    /// Whether it may have a voice: it sounds, or will soon.
    [[nodiscard]] bool isDue(const Emitter& emitter) const {
        return emitter.head.since - now_ <= lead_;
    }
    std::vector<Index>* listOf(Phase phase);

    SceneChanges& changes_;
    std::unique_ptr<VoicePool> pool_;
    unsigned rate_ = 44100;
    std::int64_t now_ = 0;
    std::int64_t lead_ = 0;
    float doppler_ = 0.0F;
    std::int64_t listenerMovedAt_ = 0;
    std::int64_t shiftedAt_ = 0;
    ListenerValues listener_;
    std::vector<Emitter> emitters_;
    std::vector<Index> running_;
    std::vector<Index> expected_;
    std::int64_t nextEnd_ = 0; // no sound ends before this frame
    std::size_t unmixed_ = 0;  // of those that run
    VoiceRanking ranking_;
    std::int64_t rankedAt_ = 0;
    std::int64_t sweptAt_ = 0;
    std::uint64_t pastGaps_ = 0;
    std::vector<Ended> ended_;
    std::vector<Diagnostic> failures_;
    std::uint64_t failureCount_ = 0;
    double changeDelay_ = 0.0;
    double move_ = 0.0;
    // Of one call of takeChanges().
    struct Change {
        Index emitter;
        unsigned what;
        bool wasLooping;
    };
    std::vector<Change> taken_;
    std::vector<std::shared_ptr<const Sound>> dropped_; // freed outside of the lock
};

} // namespace Orvel::detail
