#pragma once

#include "doctor/CheckResult.h"

namespace OrvelTool {

/// Checks which sound devices there are and which of them open. Of the default one reports the
/// sample rate, the latency, and how many sounds it plays at once. Opens each device briefly; plays
/// nothing. Hides the drivers' own output unless `verbose`.
CheckResults checkSound(bool verbose);

/// Checks which sound file formats can be read.
CheckResult checkFormats();

} // namespace OrvelTool
