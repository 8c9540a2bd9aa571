#pragma once

#include <string>

namespace OrvelTool {

/// Registers the tool's own kinds of back ends beside the library's. Call it once, at the start.
void registerKinds();

/// Whether a back end of that kind can be added to a world.
bool isKind(const std::string& name);

/// The kinds for `orvel play`, separated by commas.
std::string playableKinds();

/// All kinds, one per line with a description.
std::string describeKinds();

} // namespace OrvelTool
