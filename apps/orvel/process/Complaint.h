#pragma once

#include <string>

namespace OrvelTool {

/// Exit codes.
inline constexpr int kSuccess = 0;
inline constexpr int kFailure = 1;
inline constexpr int kWrongUse = 2;

/// Writes "orvel: ", the message and a line end to standard error.
void complain(const std::string& message);

} // namespace OrvelTool
