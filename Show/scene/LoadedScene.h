#pragma once

#include <Show/scene/Scene.h>
#include <Show/scene/SceneFile.h>
#include <Show/scene/SoundBank.h>

#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

namespace Show {

/// A scene with its sounds, read once and never changed.
struct LoadedScene {
    Scene scene;
    SoundBank sounds;
};

/// Reads a scene file and decodes its sounds. Every mistake becomes a problem; the result is
/// null if and only if there are any.
std::unique_ptr<const LoadedScene>
loadScene(const std::string& path, std::vector<Problem>& problems);
/// The same for a scene from a stream, see readScene().
std::unique_ptr<const LoadedScene>
loadScene(std::istream& in, const std::string& name, std::vector<Problem>& problems);

/// How many emitters a scene has, those that come in its timeline included.
std::size_t countEmitters(const Scene& scene);
/// How many sources a scene has, those that come in its timeline included.
std::size_t countSources(const Scene& scene);

/// How many emitters OpenAL holds at once unless it is configured for more.
inline constexpr std::size_t kUsualEmitters = 256;

/// What a user calls a sound: a file's or URL's name without folders and extension, or "440 Hz".
std::string nameOf(const Sound& sound);

} // namespace Show
