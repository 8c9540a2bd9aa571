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
/// nothing but std::bad_alloc; mistakes are values. Limits: 64 MiB of JSON, 1 GiB of decoded sound.
///
/// Immutable, and cheap to copy: copies share what was loaded, and playbacks keep it alive.
class ORVEL_SHOW_EXPORT ShowFile {
public:
    /// Loads a scene or a capture, whichever the file is, and decodes its sounds; URLs are left to
    /// the back ends. `fetch` is for captures: whether sounds that they name by URL are fetched,
    /// which is for captures from people that the user trusts. Look at isGood() next.
    [[nodiscard]] static ShowFile load(const std::string& path, bool fetch = false);
    /// Reads a scene from a stream. `name` is what problems name; relative sound files are looked
    /// for in its folder, which for a mere word is the current one.
    [[nodiscard]] static ShowFile readScene(std::istream& in, const std::string& name);

    /// Whether it can be played. A scene with any mistake cannot.
    [[nodiscard]] bool isGood() const noexcept;
    /// Whether it is a capture that can be played.
    [[nodiscard]] bool isCapture() const noexcept;
    /// Whether it can be played with all of its sounds; a good scene always.
    [[nodiscard]] bool isComplete() const noexcept;
    /// The mistakes in a scene, by line, or what of a capture cannot be played; at most about 100.
    [[nodiscard]] const std::vector<Problem>& problems() const noexcept;

    /// How many sources and emitters there are, those that come in a scene's timeline included; of
    /// a capture the most that there can be. 0 if it is not good.
    [[nodiscard]] std::size_t sources() const noexcept;
    [[nodiscard]] std::size_t emitters() const noexcept;

    /// What check() finds.
    struct Check {
        std::vector<Problem> warnings; ///< sorted by line
        double seconds = 0.0;          ///< when the scene is over; URLs count as nothing
    };
    /// What a scene without mistakes does that is hardly meant, above all what is never heard. The
    /// scene is played through for that, without sound. Empty for what is no good scene.
    [[nodiscard]] Check check() const;
    /// The scene from above as an SVG document, with the emitters' hulls and paths. Empty for what
    /// is no good scene.
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
