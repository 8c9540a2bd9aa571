#pragma once

#include "doctor/CheckResult.h"

namespace OrvelTool {

/// Checks how well the system's clock is synchronised, and by which program, for the parameter
/// clock=system of the kind "client". Asks chrony and linuxptp, if they run, for up to 2 s each.
CheckResult checkClock();

} // namespace OrvelTool
