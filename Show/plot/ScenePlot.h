#pragma once

#include <Show/render/LevelMeter.h>
#include <Show/scene/LoadedScene.h>

#include <string>

namespace Show {

/// A scene from above as an SVG document: +x to the right, -z upwards, the listener and the
/// emitters where they begin, their hulls, and their paths with marks of time. With levels, these
/// of the two channels stand below.
std::string drawScene(const LoadedScene& loaded, const LevelMeter* levels);

/// The window in seconds for a meter whose levels are drawn, for a render of that length.
double plotWindow(double seconds);

} // namespace Show
