#pragma once

#include <Show/scene/LoadedScene.h>
#include <Show/scene/SceneFile.h>

#include <vector>

namespace Show {

/// What a scene without mistakes does that is hardly meant: above all what is never heard, or not
/// as the file says. The scene is played through for that, without sound, and levels are those of
/// the back end "openal"; sounds given by URL count as audible. Sorted by line. Of many emitters
/// with the same fault the first are named, the others counted.
/// `end` is set to when the scene is over, in seconds; URLs count as nothing there.
std::vector<Problem> findWarnings(const LoadedScene& loaded, double& end);

} // namespace Show
