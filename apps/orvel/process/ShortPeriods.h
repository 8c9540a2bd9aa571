#pragma once

#include <string>

namespace OrvelTool {

/// Has OpenAL Soft mix in short periods, where the user's settings do not say otherwise: a sound
/// begins with a period, and those of 20 ms or more, as they are by default, would be heard as gaps
/// between the rounds of a loop. The device's whole buffer stays about as long as by default.
///
/// To be made before anything uses OpenAL and while no other thread runs, and kept until the device
/// is open. Without room for a temporary folder it does nothing.
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
