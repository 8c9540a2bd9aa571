#pragma once

#include <Show/scene/LoadedScene.h>

#include <Orvel/Emitter.h>
#include <Orvel/SilentBackend.h>
#include <Orvel/Source.h>
#include <Orvel/World.h>

#include <cstddef>
#include <deque>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <unordered_map>
#include <vector>

namespace Show {

/// What there was of one emitter from its creation to its end. Levels are linear; distances are
/// those to the listener. All but `played` is about the moments at which it played.
struct EmitterHistory {
    const EmitterSpec* spec = nullptr;
    bool played = false;
    bool connected = false;   ///< to a source
    bool enabled = false;     ///< connected, and the world was not disabled
    float highestGain = 0.0F; ///< while enabled; so are all that follow
    float loudest = 0.0F;     ///< gain and attenuation together
    float nearest = std::numeric_limits<float>::infinity();
    bool withoutInner = false;    ///< spatial, away from the listener, and with inner extents of 0
    bool innerAboveOuter = false; ///< spatial, and with an inner extent above the outer one
    float softest = 1.0F;         ///< by distance, at such a moment
    bool withinOuter = false;     ///< not spatial, or within the mean of the outer extents
    bool amplified = false;       ///< with a gain above 1
    float leastExcess = std::numeric_limits<float>::infinity(); ///< of that gain over what is heard
};

/// A back end that plays nothing and follows how loud each emitter would be through OpenAL.
/// Confined to its world's thread; the scene must outlive it.
class SceneListener : public Orvel::SilentBackend {
public:
    SceneListener(Orvel::World& world, const LoadedScene& loaded);

    /// Names the sound that a source has from now on.
    void setSound(int source, const Sound& sound);
    /// Takes account of the changes since the last call. `jump`: they happened at once; otherwise
    /// positions have moved in straight lines from where they were.
    void listen(bool jump);

    [[nodiscard]] const std::vector<EmitterHistory>& emitters() const { return emitters_; }
    /// The descriptions of the sources that no emitter was ever connected to.
    [[nodiscard]] std::vector<const SourceSpec*> unusedSources() const;
    /// The most emitters that existed at once.
    [[nodiscard]] std::size_t mostEmitters() const { return mostEmitters_; }

    void setEnabled() override { everything_ = true; }
    void setListenerTransform() override { everything_ = true; }
    void createSource(Orvel::Source& source) override;
    void createEmitter(Orvel::Emitter& emitter) override;
    void destroyEmitter(Orvel::Emitter& emitter) override;
    void setEmitterTransform(Orvel::Emitter& emitter) override { changed_.insert(emitter.id()); }
    void setEmitterHull(Orvel::Emitter& emitter) override { changed_.insert(emitter.id()); }
    void setEmitterParam(Orvel::Emitter& emitter) override { changed_.insert(emitter.id()); }
    void setEmitterConnection(Orvel::Emitter& emitter) override;
    void setEmitterState(Orvel::Emitter& emitter) override;

private:
    /// What an emitter's level depends on, at a moment at which it plays.
    struct Moment {
        Orvel::Vec3f position; // relative to the listener
        Orvel::Hull hull;
        float gain = 1.0F;
    };
    struct Present {
        std::size_t history;
        std::optional<Moment> last; // none if it did not play then
    };
    struct PresentSource {
        const SourceSpec* spec = nullptr;
        bool stereo = false;
    };

    void listen(const Orvel::Emitter& emitter, Present& present, bool jump);

    const SoundBank& sounds_;
    std::unordered_map<int, std::deque<const EmitterSpec*>> emitterSpecs_; // yet to come, by id
    std::unordered_map<int, std::deque<const SourceSpec*>> sourceSpecs_;
    std::vector<EmitterHistory> emitters_;
    std::unordered_map<int, Present> present_;
    std::unordered_map<int, PresentSource> sources_;
    std::set<const SourceSpec*> unused_;
    std::set<int> changed_; // emitters
    bool everything_ = false;
    std::size_t mostEmitters_ = 0;
};

} // namespace Show
