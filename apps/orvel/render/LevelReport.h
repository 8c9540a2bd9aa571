#pragma once

#include "render/LevelMeter.h"

#include <nlohmann/json_fwd.hpp>

#include <ostream>

namespace OrvelTool {

/// Writes a table: a line per window and one for all, with peak and RMS of the left and the right
/// channel in dB below full scale, "-inf" for silence.
void writeTable(std::ostream& out, const LevelMeter& meter);

/// The same as JSON: {"levels": [{"second": 0, "left": {"peak": dBFS, "rms": dBFS}, "right": ...},
/// ...], "all": {"left": ..., "right": ...}}, with null for silence.
nlohmann::ordered_json toJson(const LevelMeter& meter);

} // namespace OrvelTool
