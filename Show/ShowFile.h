#pragma once

#include <Show/Problem.h>

#include <cstddef>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include <orvel_show_export.h>

namespace Show {

class Playable;

/// A scene file (docs/scene-files.md) with its sounds, or a capture of a sound server
/// (docs/capture.md): loaded once, then played and rendered any number of times. Loading throws
/// only std::bad_alloc; mistakes are values. Limits: 64 MiB of JSON, 1 GiB of decoded sound.
///
/// Immutable, and cheap to copy: copies share the loaded data, and playbacks keep it alive.
class ORVEL_SHOW_EXPORT ShowFile {
public:
    /// Loads a scene or a capture, depending on the file, and decodes its sounds; URLs are left to
    /// the back ends. `fetch`: whether to fetch sounds that a capture names by URL; set it only for
    /// captures that the user trusts. Check isGood() afterwards.
    [[nodiscard]] static ShowFile load(const std::string& path, bool fetch = false);
    /// Reads a scene from a stream. `name` stands in problems; relative sound files are looked for
    /// in its folder, or in the current one if it has none.
    [[nodiscard]] static ShowFile readScene(std::istream& in, const std::string& name);

    /// Whether it can be played. A scene with any mistake cannot.
    [[nodiscard]] bool isGood() const noexcept;
    /// Whether it is a capture that can be played.
    [[nodiscard]] bool isCapture() const noexcept;
    /// Whether it can be played with all of its sounds; always true for a good scene.
    [[nodiscard]] bool isComplete() const noexcept;
    /// The mistakes in a scene, by line, or the parts of a capture that cannot be played; at most
    /// about 100.
    [[nodiscard]] const std::vector<Problem>& problems() const noexcept;

    /// Numbers of sources and emitters, including those of a scene's timeline; for a capture the
    /// largest possible numbers. 0 if it is not good.
    [[nodiscard]] std::size_t sources() const noexcept;
    [[nodiscard]] std::size_t emitters() const noexcept;

    /// The result of check().
    struct Check {
        std::vector<Problem> warnings; ///< sorted by line
        double seconds = 0.0;          ///< end of the scene; URLs count as 0
    };
    /// Finds values in a valid scene that are unlikely to be intended, above all sounds that are
    /// never heard. Plays the scene through without sound. Empty if this is not a good scene.
    [[nodiscard]] Check check() const;
    /// The scene from above as an SVG document, with the emitters' hulls and paths. Empty if this
    /// is not a good scene.
    [[nodiscard]] std::string picture() const;

    /// For the other classes of this library; null if the file is not good.
    [[nodiscard]] const std::shared_ptr<const Playable>& playable() const noexcept {
        return playable_;
    }

private:
    ShowFile() = default;

    std::shared_ptr<const Playable> playable_;
    std::shared_ptr<const std::vector<Problem>> problems_;
};

} // namespace Show
