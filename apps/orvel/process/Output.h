#pragma once

#include <Show/Problem.h>

#include <ostream>
#include <string>
#include <vector>

namespace OrvelTool {

/// Exit codes.
inline constexpr int kSuccess = 0;
inline constexpr int kFailure = 1;
inline constexpr int kWrongUse = 2;

/// Standard output and standard error, with control characters made visible: names and values come
/// from files and peers. The tool writes to no other stream. Each thread has its own line buffer,
/// so lines of several threads do not mix.
std::ostream& standardOutput();
std::ostream& standardError();

/// Writes "orvel: ", the message and a line end to standard error.
void report(const std::string& message);
/// Shows a line at the place of the next message, which replaces it; an empty one removes it. Only
/// if standard error is a terminal. On the main thread.
void showStatus(const std::string& line);
/// Writes problems in the user's input to standard error, one line each.
void report(const std::vector<Show::Problem>& problems);

} // namespace OrvelTool
