#pragma once

#include <Config/Param.h>

#include <string>
#include <vector>

namespace OrvelTool {

/// Registers the tool's own kinds of back ends beside the library's. Call it once, at startup.
void registerKinds();

/// Whether a back end of this kind can be added to a world.
bool isKind(const std::string& name);

/// All kinds, sorted.
std::vector<std::string> kinds();

/// The parameters of a kind.
std::vector<Config::Param> parametersOf(const std::string& kind);
/// Their names.
std::vector<const char*> parameterNames(const std::string& kind);

/// All kinds, one per line with a description and the names of its parameters. `verbose`: each
/// parameter on a line of its own, with its values, its default and its meaning.
std::string describeKinds(bool verbose);

} // namespace OrvelTool
