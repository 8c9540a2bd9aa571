#pragma once

#include <Show/scene/Scene.h>
#include <Show/scene/SceneFile.h>
#include <Show/scene/SoundBank.h>

#include <algorithm>
#include <cstddef>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

namespace Show {

/// A scene with its sounds; immutable.
struct LoadedScene {
    Scene scene;
    SoundBank sounds;
};

/// Reads a scene file and decodes its sounds. Every mistake becomes a problem; the result is null
/// if and only if there are any.
std::unique_ptr<const LoadedScene>
loadScene(const std::string& path, std::vector<Problem>& problems);
/// Reads a scene from a stream, see readScene().
std::unique_ptr<const LoadedScene>
loadScene(std::istream& in, const std::string& name, std::vector<Problem>& problems);

/// Number of emitters, including those created in the timeline.
std::size_t countEmitters(const Scene& scene);
/// Number of sources, including those created in the timeline.
std::size_t countSources(const Scene& scene);

/// The number of voices for a scene if none is asked for: one for each emitter, but not fewer than
/// the kind "voices" has by default and not more than it can have.
inline constexpr std::size_t kUsualVoices = 128;
inline constexpr std::size_t kMaxVoices = 1024;
inline std::size_t voicesFor(std::size_t emitters) {
    return std::clamp(emitters, kUsualVoices, kMaxVoices);
}

/// The name of a sound for users: a file's or URL's name without folders and extension, or "440
/// Hz".
std::string nameOf(const Sound& sound);

} // namespace Show
