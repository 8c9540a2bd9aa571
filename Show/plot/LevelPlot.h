#pragma once

#include <Show/LevelMeter.h>
#include <Show/plot/Svg.h>

#include <string>

namespace Show {

/// The RMS levels of both channels over time, one above the other, as SVG elements within `frame`,
/// with room for the axis labels at its left and below.
std::string drawLevels(const LevelMeter& meter, const Box& frame);

} // namespace Show
