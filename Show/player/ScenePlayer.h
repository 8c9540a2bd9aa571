#pragma once

#include <Show/player/Overrides.h>
#include <Show/player/Player.h>
#include <Show/scene/Ramp.h>
#include <Show/scene/Scene.h>
#include <Show/scene/SceneSources.h>
#include <Show/scene/SoundBank.h>

#include <Orvel/World.h>

#include <array>
#include <cstddef>
#include <map>
#include <optional>
#include <vector>

namespace Show {

/// Puts a scene into a world and moves it through its timeline.
///
/// The scene, the sounds and the world must outlive it. Confined to the world's thread. Nothing can
/// fail; a back end logs its own failures.
class ScenePlayer : public Player {
public:
    /// The interval, in seconds, at which to call advance() while something moves.
    static constexpr double kTick = 0.01;

    ScenePlayer(
        const Scene& scene, const SoundBank& sounds, Orvel::World& world,
        LongFiles longFiles = LongFiles::AsNeeded);
    /// For a world without sounds, or with sounds from elsewhere. Calls `give` where a source gets
    /// its sound; end() takes the lengths from `sounds`.
    ScenePlayer(const Scene& scene, const SoundBank& sounds, Orvel::World& world, GiveSound give);

    void prepare() override;
    /// Restarting keeps the sources that still have their initial sound, because loading it takes
    /// time.
    void start() override;
    void advance(double seconds) override;
    /// The next entry of the timeline or end of a movement.
    [[nodiscard]] double nextChange(double seconds) const override;
    /// Whether something moves, so that calls each kTick make a difference.
    [[nodiscard]] bool moving() const override;

    /// The end of the scene in seconds: its duration, or else the time when the timeline is over
    /// and every sound that plays then has ended, a looped one after playing once. Call it after
    /// start(): the lengths of URLs are known then, if a back end has fetched them. Cheap until
    /// another length becomes known.
    [[nodiscard]] double end() const override;

    [[nodiscard]] std::map<int, Ramp<float>> pitchRamps() const override { return pitches_; }
    [[nodiscard]] Overrides* overrides() override { return &overrides_; }

private:
    template <class Value>
    using MaybeRamp = std::optional<Ramp<Value>>;

    /// The movements of a listener or an emitter.
    struct PlaceRamps {
        MaybeRamp<Orvel::Vec3f> position;
        MaybeRamp<Orvel::Quaternion> rotation;
    };
    struct EmitterRamps : PlaceRamps {
        std::array<MaybeRamp<float>, Orvel::kHullExtents.size()> hull;
        MaybeRamp<float> gain;
        MaybeRamp<float> value;
    };

    template <class Visit>
    void visitRamps(Visit visit) const;

    void clear();
    void createEmitter(const EmitterSpec& spec);
    void destroyEmitter(Orvel::Emitter& emitter);
    void apply(const Change& change);
    void applyToWorld(const Change& change);
    void applyToListener(const Change& change);
    void applyToSource(const Change& change, Orvel::Source& source);
    void applyToEmitter(const Change& change, Orvel::Emitter& emitter);
    void move(double seconds);
    void move(Orvel::Emitter& emitter, EmitterRamps& ramps, double seconds);

    const Scene& scene_;
    const SoundBank& sounds_;
    Orvel::World& world_;
    Overrides overrides_;
    GiveSound give_;
    std::map<int, Sound> given_; // by id of the source
    std::size_t next_ = 0;       // in the timeline
    PlaceRamps listener_;
    std::map<int, EmitterRamps> emitters_; // by id; those without any ramp are removed
    std::map<int, Ramp<float>> pitches_;   // by id of the source
    std::vector<int> fetched_;             // sources that have a sound by URL at some time
    mutable std::vector<float> lengths_;   // of fetched_, when end_ was computed
    mutable double end_ = -1.0;            // negative: unknown
};

} // namespace Show
