#pragma once

#include <Orvel/World.h>

namespace OrvelTool {

/// Prints on standard output the state of each back end that mixes, and how its loudest emitters
/// are heard. `seconds`: the time of the scene.
void writeStatus(Orvel::World& world, double seconds);

/// Reports how often the data of streamed sounds came too late, if ever.
void reportGaps(const Orvel::World& world);

} // namespace OrvelTool
