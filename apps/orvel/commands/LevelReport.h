#pragma once

#include <Show/LevelMeter.h>

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <ostream>

namespace OrvelTool {

/// Default limit on the rows of a table.
inline constexpr std::size_t kMaxRows = 60;

/// Writes a table: a row for each second and one for all, with peak and RMS of the left and the
/// right channel in dB below full scale, "-inf" for silence. The meter's windows are seconds. If
/// there would be more than `maxRows`, each row covers several seconds.
void writeTable(std::ostream& out, const Show::LevelMeter& meter, std::size_t maxRows = kMaxRows);

/// The same as JSON: {"levels": [{"second": 0, "left": {"peak": dBFS, "rms": dBFS}, "right": ...},
/// ...], "all": {"left": ..., "right": ...}}, with null for silence.
nlohmann::ordered_json toJson(const Show::LevelMeter& meter);

} // namespace OrvelTool
