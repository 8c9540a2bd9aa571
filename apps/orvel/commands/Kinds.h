#pragma once

#include <string>
#include <vector>

namespace OrvelTool {

/// Registers the tool's own kinds of back ends beside the library's. Call it once, at startup.
void registerKinds();

/// Whether a back end of this kind can be added to a world.
bool isKind(const std::string& name);

/// All kinds, sorted.
std::vector<std::string> kinds();

/// The parameter names of a kind.
std::vector<const char*> parametersOf(const std::string& kind);

/// All kinds, one per line with a description and the names of its parameters.
std::string describeKinds();

} // namespace OrvelTool
