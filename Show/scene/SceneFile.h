#pragma once

#include <Show/Problem.h>
#include <Show/scene/Scene.h>

#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Show {

/// Reads a scene file. Every mistake becomes a problem, sorted by line, at most kMaxProblems of
/// them; the result is empty if and only if there are any. Only checks that sound files exist, see
/// SoundBank.
std::optional<Scene> readScene(const std::string& path, std::vector<Problem>& problems);

/// Reads a scene from a stream. `name` stands in problems; relative sound files are looked for in
/// its folder, or in the current one if it has none.
std::optional<Scene>
readScene(std::istream& in, const std::string& name, std::vector<Problem>& problems);

/// Reads a scene from memory. `path` stands in problems, and relative sound files are relative to
/// it; does not access the disk.
std::optional<Scene>
parseScene(std::string_view text, const std::string& path, std::vector<Problem>& problems);

/// The reason why a sound file cannot be read, or an empty text.
std::string soundFileProblem(const std::string& path);

inline constexpr std::size_t kMaxProblems = 100;
inline constexpr std::size_t kMaxSceneBytes = std::size_t{64} << 20U;
inline constexpr std::size_t kMaxSceneValues = 2'000'000;
inline constexpr std::size_t kMaxSceneDepth = 64;
/// Ids are 1 to this, the largest that can be sent to another machine.
inline constexpr int kMaxId = 32767;
/// Limit of all times, in seconds: a day.
inline constexpr double kMaxSeconds = 86400.0;

} // namespace Show
