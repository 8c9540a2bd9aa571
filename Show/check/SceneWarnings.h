#pragma once

#include <Show/scene/LoadedScene.h>
#include <Show/scene/SceneFile.h>

#include <vector>

namespace Show {

/// Finds values in a valid scene that are unlikely to be intended, above all sounds that are never
/// heard. Plays the scene through without sound; levels are those of the back end "openal", and
/// sounds by URL count as audible. Sorted by line. Of many emitters with the same problem the first
/// are named and the others counted. Sets `end` to the end of the scene in seconds, where URLs
/// count as 0.
std::vector<Problem> findWarnings(const LoadedScene& loaded, double& end);

} // namespace Show
