#pragma once

#include <Show/osc/GainFades.h>
#include <Show/osc/OscEdits.h>
#include <Show/osc/OscFamily.h>

#include <Orvel/Emitter.h>
#include <Orvel/World.h>

#include <array>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>

namespace Show {

/// The paths of ADM-OSC, and the properties of its objects that emitters do not have. Confined to
/// the world's thread.
class AdmPaths {
public:
    /// Receives the name of `/adm/env/change`.
    using Change = std::function<void(const std::string& name)>;

    /// Limit of the emitters that their first message has created.
    static constexpr std::size_t kMaxAppeared = 1024;
    /// Limit of names, in characters.
    static constexpr std::size_t kMaxName = 128;

    /// `scale`: scene units per normalised unit. `edits` must outlive it.
    AdmPaths(const OscEdits& edits, float scale, Change change);
    AdmPaths(const AdmPaths&) = delete;
    AdmPaths& operator=(const AdmPaths&) = delete;

    [[nodiscard]] const OscFamily<Orvel::Emitter>& objects() const { return objectPaths_; }
    [[nodiscard]] const OscFamily<Orvel::World>& listener() const { return listenerPaths_; }
    [[nodiscard]] const OscFamily<Orvel::World>& scene() const { return scenePaths_; }

    /// Creates the emitter of an object. Returns why not, or an empty text.
    std::string appear(int id);
    /// The emitter is gone, and with it the properties of its object.
    void forget(int id);
    /// Sets the gain, of at least 0, at once or over a time. A muted object gets it when unmuted.
    void setGain(Orvel::Emitter& emitter, float gain, GainFades::Clock::duration over = {});
    [[nodiscard]] GainFades& fades() { return fades_; }
    [[nodiscard]] OscValues readGain(Orvel::Emitter& emitter) const;

private:
    struct Polar {
        float azimuth = 0.0F;
        float elevation = 0.0F;
        float distance = 0.0F;
        Orvel::Vec3f place; // the resulting position
    };
    struct Object {
        std::optional<Polar> polar; ///< if such a message has placed it
        std::optional<float> gain;  ///< to restore when unmuted
        std::optional<float> unit;  ///< scene units per normalised unit, if its own
        std::string name;
    };

    OscFamily<Orvel::Emitter> objectPaths();
    OscEntry<Orvel::Emitter> placeEntry(
        const char* name, const char* meaning, std::size_t first, std::size_t count,
        bool sent = false);
    OscEntry<Orvel::Emitter>
    polarEntry(const char* name, const char* meaning, OscRanges ranges, float Polar::*member);

    void setPolar(Orvel::Emitter& emitter, Polar polar);
    [[nodiscard]] Polar polarOf(const Orvel::Emitter& emitter) const;
    void setMute(Orvel::Emitter& emitter, bool mute);
    [[nodiscard]] bool muted(const Orvel::Emitter& emitter) const;
    void setUnit(Orvel::Emitter& emitter, float unit);
    [[nodiscard]] float unitOf(const Orvel::Emitter& emitter) const;
    void setWidth(Orvel::Emitter& emitter, float width);
    [[nodiscard]] float widthOf(const Orvel::Emitter& emitter) const;
    void setReach(Orvel::Emitter& emitter, float reference);
    [[nodiscard]] float referenceOf(const Orvel::Emitter& emitter) const;
    void changeTo(const std::string& name);
    /// Has back ends show an object.
    void show(const Orvel::Emitter& emitter) const;
    [[nodiscard]] const Object* find(int id) const;

    const OscEdits& edits_;
    float scale_;
    Change change_;
    GainFades fades_{edits_};
    std::string lastChange_;
    std::map<int, Object> objects_; // by the emitter's id, if it has such properties
    std::set<int> appeared_;        // emitters that their first message has created
    const OscFamily<Orvel::Emitter> objectPaths_;
    const OscFamily<Orvel::World> listenerPaths_;
    const OscFamily<Orvel::World> scenePaths_;
};

} // namespace Show
