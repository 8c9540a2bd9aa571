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

/// The history of one emitter from its creation to its destruction. Levels are linear; distances
/// are to the listener. All but `played` covers only the times at which it played.
struct EmitterHistory {
    const EmitterSpec* spec = nullptr;
    bool played = false;
    bool connected = false;   ///< to a source
    bool enabled = false;     ///< connected, while the world was enabled
    float highestGain = 0.0F; ///< while enabled; so are all that follow
    float loudest = 0.0F;     ///< gain and attenuation together
    float nearest = std::numeric_limits<float>::infinity();
    bool withoutInner = false;    ///< spatial, away from the listener, with inner extents of 0
    bool innerAboveOuter = false; ///< spatial, with an inner extent above the outer one
    float softest = 1.0F;         ///< by distance, in that case
    bool withinOuter = false;     ///< not spatial, or within the mean of the outer extents
    bool amplified = false;       ///< with a gain above 1
    float leastExcess = std::numeric_limits<float>::infinity(); ///< over the audible level
};

/// A back end that plays nothing and computes how loud each emitter would be through OpenAL.
/// Confined to its world's thread; the scene must outlive it.
class SceneListener : public Orvel::SilentBackend {
public:
    SceneListener(Orvel::World& world, const LoadedScene& loaded);

    /// Sets the sound that a source has from now on.
    void setSound(int source, const Sound& sound);
    /// Processes the changes since the last call. `jump`: they happened at once; otherwise
    /// positions have moved in straight lines.
    void listen(bool jump);

    [[nodiscard]] const std::vector<EmitterHistory>& emitters() const { return emitters_; }
    /// The descriptions of sources that no emitter was ever connected to.
    [[nodiscard]] std::vector<const SourceSpec*> unusedSources() const;
    /// The largest number of emitters at one time.
    [[nodiscard]] std::size_t maxEmitters() const { return maxEmitters_; }

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
    /// The state that determines an emitter's level while it plays.
    struct Moment {
        Orvel::Vec3f position; // relative to the listener
        Orvel::Hull hull;
        float gain = 1.0F;
    };
    struct Present {
        std::size_t history;
        std::optional<Moment> last; // empty if it did not play then
    };
    struct PresentSource {
        const SourceSpec* spec = nullptr;
        bool stereo = false;
    };

    void listen(const Orvel::Emitter& emitter, Present& present, bool jump);

    const SoundBank& sounds_;
    std::unordered_map<int, std::deque<const EmitterSpec*>> emitterSpecs_; // future ones, by id
    std::unordered_map<int, std::deque<const SourceSpec*>> sourceSpecs_;
    std::vector<EmitterHistory> emitters_;
    std::unordered_map<int, Present> present_;
    std::unordered_map<int, PresentSource> sources_;
    std::set<const SourceSpec*> unused_;
    std::set<int> changed_; // emitters
    bool everything_ = false;
    std::size_t maxEmitters_ = 0;
};

} // namespace Show
