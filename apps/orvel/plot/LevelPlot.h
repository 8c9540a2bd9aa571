#pragma once

#include "plot/Svg.h"
#include "render/LevelMeter.h"

#include <string>

namespace OrvelTool {

/// The RMS levels of both channels over time, one above the other, as SVG elements within `frame`,
/// which leaves room for the axes' numbers at its left and below.
std::string drawLevels(const LevelMeter& meter, const Box& frame);

} // namespace OrvelTool
