#pragma once

#include <Show/Cue.h>

#include <Orvel/Hull.h>
#include <Orvel/Quaternion.h>
#include <Orvel/Vec3f.h>
#include <Orvel/WorldPart.h>

#include <array>
#include <compare>
#include <optional>
#include <string>
#include <variant>
#include <vector>

/// Scenes around the library: scene files, their sounds, playing, serving and rendering them.
namespace Show {

/// A sine wave of one channel that starts at zero. It loops without a click if hertz x seconds is a
/// whole number, and seconds x 44100 too.
struct Tone {
    double hertz = 440.0;
    double seconds = 1.0;
    double amplitude = 0.5;                        ///< of full scale, 0 to 1
    auto operator<=>(const Tone&) const = default; // NOLINT(modernize-use-nullptr)
};

/// A sound file, by its absolute path.
struct SoundFile {
    std::string path;
    /// Keeps one or two channels; otherwise all are mixed to one.
    bool keepChannels = false;
    auto operator<=>(const SoundFile&) const = default; // NOLINT(modernize-use-nullptr)
};

/// A sound that the back ends fetch themselves.
struct SoundUrl {
    std::string text;
    auto operator<=>(const SoundUrl&) const = default; // NOLINT(modernize-use-nullptr)
};

using Sound = std::variant<std::monostate, SoundFile, SoundUrl, Tone>;

/// A place in the scene file: its line from 1, and its path of keys such as "emitters[0].gain".
struct Where {
    int line = 0;
    std::string field;
};

struct SourceSpec {
    int id = 0;
    Sound sound;
    bool loop = false;
    float pitch = 1.0F;
    Orvel::WorldPart::State state = Orvel::WorldPart::NONE;
    Where where;
    Where soundWhere; ///< of the key that defines the sound
};

struct EmitterSpec {
    int id = 0;
    std::optional<int> source;
    Orvel::Vec3f position;
    Orvel::Quaternion rotation; ///< of unit length
    Orvel::Hull hull;
    bool oneInner = false; ///< only one of the two inner extents is defined
    bool oneOuter = false; ///< only one of the two outer extents is defined
    float gain = 1.0F;
    bool spatial = true;
    float value = 0.0F;
    std::vector<std::string> labels;
    Orvel::WorldPart::State state = Orvel::WorldPart::NONE;
    Where where;
};

/// One entry of the timeline. Properties that it does not contain are empty.
struct Change {
    enum class Target { Emitter, Source, Listener, World };

    double at = 0.0;   ///< seconds from the start
    double over = 0.0; ///< seconds that position, rotation, hull, gain, value and pitch take
    Target target = Target::World;
    int id = 0; ///< of the emitter or source

    /// The part that is created; the single properties below are then empty.
    std::optional<EmitterSpec> newEmitter;
    std::optional<SourceSpec> newSource;
    bool destroy = false;

    // Emitter and listener.
    std::optional<Orvel::Vec3f> position;
    std::optional<Orvel::Quaternion> rotation; ///< of unit length
    // Emitter.
    std::array<std::optional<float>, Orvel::kHullExtents.size()> hull;
    std::optional<float> gain;
    std::optional<float> value;
    std::optional<bool> spatial;
    bool reconnect = false;     ///< to `connect`
    std::optional<int> connect; ///< the source's id; none disconnects
    // Source.
    Sound sound;
    std::optional<bool> loop;
    std::optional<float> pitch;
    // Emitter and source.
    std::optional<Orvel::WorldPart::State> state;
    // World.
    std::optional<bool> enabled;
    std::optional<bool> spatialize;

    Where where;
    Where soundWhere; ///< of the key that defines the sound
};

struct CueSpec : Cue {
    Where where;
};

/// The contents of a scene file; see docs/scene-files.md. Values are within their ranges, and every
/// id referred to exists at that time.
struct Scene {
    std::string path;               ///< of the file, as given
    std::optional<double> duration; ///< seconds
    /// The output, the Doppler effect and the reverberation that it is made for, as parameters of
    /// the kind "voices".
    std::string voicesParams;
    Orvel::Vec3f listenerPosition;
    Orvel::Quaternion listenerRotation;
    std::vector<SourceSpec> sources;
    std::vector<EmitterSpec> emitters;
    std::vector<CueSpec> cues;    ///< in the file's order
    std::vector<Change> timeline; ///< by `at`; entries with equal times are in the file's order
};

/// Calls `visit` with every sound of a scene, those of its timeline included.
void visitSounds(const Scene& scene, auto&& visit) {
    for (const SourceSpec& source : scene.sources) {
        visit(source.sound);
    }
    for (const Change& change : scene.timeline) {
        visit(change.newSource ? change.newSource->sound : change.sound);
    }
}

} // namespace Show
