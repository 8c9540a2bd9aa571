#pragma once

#include <string>

namespace OrvelTool {

/// Makes OpenAL Soft mix in short periods unless the user's settings say otherwise. A sound starts
/// at a period boundary; with the default of 20 ms or more there would be audible gaps between the
/// rounds of a loop. The total buffer length stays about the default.
///
/// Create it before OpenAL is used and before other threads start, and keep it until the device is
/// open. If no temporary folder can be created it has no effect.
class ShortPeriods {
public:
    ShortPeriods();
    ShortPeriods(const ShortPeriods&) = delete;
    ShortPeriods& operator=(const ShortPeriods&) = delete;
    ~ShortPeriods();

private:
    std::string folder_;
};

} // namespace OrvelTool
