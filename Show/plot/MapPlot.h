#pragma once

#include <Show/player/ScenePaths.h>
#include <Show/plot/Svg.h>

#include <string>

namespace Show {

/// The map of a scene, as SVG elements within `frame`, with room for the axis labels at its left
/// and below.
std::string drawMap(const ScenePaths& paths, const Box& frame);

/// The legend of the map, as SVG elements from the point (x, y) down.
std::string drawLegend(double x, double y);

} // namespace Show
