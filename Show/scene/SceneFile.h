#pragma once

#include <Show/scene/Scene.h>

#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Show {

/// A mistake in a scene file or in one of its sounds.
struct Problem {
    std::string file;  ///< the scene file, as it was given
    int line = 0;      ///< from 1; 0 when it is about the file as a whole
    std::string field; ///< such as "emitters[0].gain"; may be empty
    std::string text;  ///< what was expected and what was found
    int column = 0;    ///< from 1, where the file is no JSON; otherwise 0

    /// One line: "scene.json:12: emitters[0].gain: expected ..., found ...". A column follows the
    /// line: "scene.json:12:7: ...".
    [[nodiscard]] std::string str() const;
};

/// Reads a scene file. Every mistake becomes a problem, in the order of their lines, at most
/// kMaxProblems of them; the result is empty if and only if there are any. Sound files are only
/// looked for, see SoundBank.
std::optional<Scene> readScene(const std::string& path, std::vector<Problem>& problems);

/// The same for what a stream holds. `name` is what the problems name; relative sound files are
/// looked for in its folder, which for a mere word is the current one.
std::optional<Scene>
readScene(std::istream& in, const std::string& name, std::vector<Problem>& problems);

/// The same for a text in memory. `path` is what the problems name and what relative sound files
/// are relative to; nothing is looked for on disk.
std::optional<Scene>
parseScene(std::string_view text, const std::string& path, std::vector<Problem>& problems);

/// Why a sound file cannot be read, or an empty text if nothing speaks against trying.
std::string soundFileFault(const std::string& path);

inline constexpr std::size_t kMaxProblems = 100;
inline constexpr std::size_t kMaxSceneBytes = std::size_t{64} << 20U;
inline constexpr std::size_t kMaxSceneValues = 2'000'000;
inline constexpr std::size_t kMaxSceneDepth = 64;
/// Ids are 1 to this: the most that can be sent to another machine.
inline constexpr int kMaxId = 32767;
/// The longest time of anything, in seconds: a day.
inline constexpr double kMaxSeconds = 86400.0;

} // namespace Show
