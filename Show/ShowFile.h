#pragma once

#include <Show/Cue.h>
#include <Show/Problem.h>

#include <Orvel/Diagnostic.h>
#include <Orvel/OutputLayout.h>

#include <cstddef>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include <orvel_show_export.h>

namespace Show {

class LevelMeter;
class PartNames;
class Playable;

/// A scene file (docs/scene-files.md) with its sounds, or a capture of a sound server
/// (docs/capture.md): loaded once, then played and rendered any number of times. Loading throws
/// only std::bad_alloc; mistakes are values. Limits: 64 MiB of JSON, 1 GiB of decoded sound.
///
/// Immutable, and cheap to copy: copies share the loaded data, and playbacks keep it alive.
class ORVEL_SHOW_EXPORT ShowFile {
public:
    /// Limit of all times in a file, in seconds: a day.
    static constexpr double kMaxSeconds = 86400.0;
    /// The recommended window of the levels for picture(), in seconds.
    static constexpr double kPictureWindow = 0.05;

    /// No file: it is not good and has no problems.
    ShowFile();

    /// Loads a scene or a capture, depending on the file, and decodes its sounds; URLs are left to
    /// the back ends. `fetch`: whether to fetch sounds that a capture names by URL; set it only for
    /// captures that the user trusts. Check isGood() afterwards.
    [[nodiscard]] static ShowFile load(const std::string& path, bool fetch = false);
    /// Reads a scene from a stream. `name` stands in problems; relative sound files are looked for
    /// in its folder, or in the current one if it has none.
    [[nodiscard]] static ShowFile readScene(std::istream& in, const std::string& name);
    /// The path if that file does not exist, or else the first sound file named in the scene that
    /// does not; empty if all do. For programs that wait for a disk or a share. Other mistakes are
    /// left to load().
    [[nodiscard]] static std::string missingFile(const std::string& path);

    /// Whether it can be played. A scene with any mistake cannot.
    [[nodiscard]] bool isGood() const noexcept;
    /// Whether it is a capture that can be played.
    [[nodiscard]] bool isCapture() const noexcept;
    /// Whether it can be played with all of its sounds; always true for a good scene.
    [[nodiscard]] bool isComplete() const noexcept;
    /// Number of sounds by URL that load() left out of a capture, because of its `fetch`.
    [[nodiscard]] std::size_t unfetched() const noexcept;
    /// The mistakes in a scene, by line, or the parts of a capture that cannot be played; at most
    /// about 100.
    [[nodiscard]] const std::vector<Problem>& problems() const noexcept;

    /// Numbers of sources and emitters, including those of a scene's timeline; for a capture the
    /// largest possible numbers. 0 if it is not good.
    [[nodiscard]] std::size_t sources() const noexcept;
    [[nodiscard]] std::size_t emitters() const noexcept;
    /// The parameters with which it is rendered by default, and that a back end of the kind
    /// "voices" should have to sound the same: a voice for each emitter, from 128 to 1024, and the
    /// output, the Doppler effect and the reverberation that the scene names.
    [[nodiscard]] std::string voicesParams() const;
    /// The channels of a render through the kind "voices" with these parameters besides, which
    /// override the scene's.
    [[nodiscard]] const Orvel::OutputLayout& layout(const std::string& params = {}) const;
    /// The cues of a scene, in the order of the file; without `until` in the file, a cue ends where
    /// the next one begins.
    [[nodiscard]] std::vector<Cue> cues() const;
    /// The paths of its sound files, including those named by file URLs.
    [[nodiscard]] std::vector<std::string> soundFiles() const;
    /// The name of a part for messages about diagnostics: for a source the place in the file that
    /// defines its sound, such as "scene.json:4: sources[0].file"; otherwise, for example,
    /// "scene.json: emitter 7". Empty for no part.
    [[nodiscard]] std::string nameOf(const Orvel::Diagnostic::Part& part) const;

    /// The result of check().
    struct Check {
        std::vector<Problem> warnings; ///< sorted by line
        double seconds = 0.0;          ///< end of the scene; URLs count as 0
    };
    /// Finds values in a valid scene that are unlikely to be intended, above all sounds that are
    /// never heard. Plays the scene through without sound. Empty if this is not a good scene.
    [[nodiscard]] Check check() const;
    /// The scene from above as an SVG document, with the emitters' hulls and paths. Empty if this
    /// is not a good scene. `levels`: draws the levels of a render below; null: none.
    [[nodiscard]] std::string picture(const LevelMeter* levels = nullptr) const;

    /// For the other classes of this library; null if the file is not good.
    [[nodiscard]] const std::shared_ptr<const Playable>& playable() const noexcept {
        return playable_;
    }

private:
    ShowFile(std::shared_ptr<const Playable> playable, std::vector<Problem> problems);

    std::shared_ptr<const Playable> playable_; // null if it is not good
    std::shared_ptr<const PartNames> names_;
    std::shared_ptr<const std::vector<Problem>> problems_;
};

} // namespace Show
