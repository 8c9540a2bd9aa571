#pragma once

#include <Show/LevelMeter.h>
#include <Show/scene/LoadedScene.h>

#include <string>

namespace Show {

/// A scene from above as an SVG document: +x to the right, -z upwards, the listener, the initial
/// places of the emitters, their hulls, and their paths with marks of time. If `levels` is given,
/// the levels of the two channels are below.
std::string drawScene(const LoadedScene& loaded, const LevelMeter* levels);

} // namespace Show
