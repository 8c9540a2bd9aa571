#pragma once

#include <Show/player/ScenePaths.h>
#include <Show/plot/Svg.h>

#include <string>

namespace Show {

/// The map of a scene, as SVG elements within `frame`, with room for the axis labels at its left
/// and below. Of many emitters it shows only how many there are in each place.
std::string drawMap(const ScenePaths& paths, const Box& frame);

/// The legend of that map, as SVG elements from the point (x, y) down.
std::string drawLegend(const ScenePaths& paths, double x, double y);

} // namespace Show
