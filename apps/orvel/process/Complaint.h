#pragma once

#include <Show/scene/SceneFile.h>

#include <string>
#include <vector>

namespace OrvelTool {

/// Exit codes.
inline constexpr int kSuccess = 0;
inline constexpr int kFailure = 1;
inline constexpr int kWrongUse = 2;

/// Writes "orvel: ", the message and a line end to standard error.
void complain(const std::string& message);
/// Writes problems in the user's input to standard error, one line each.
void complain(const std::vector<Show::Problem>& problems);

} // namespace OrvelTool
