#pragma once

#include "doctor/Finding.h"

namespace OrvelTool {

/// Which sound devices there are, which of them open, and what the default one does: its rate, its
/// latency, and how many sounds it plays at once. Opens each for a moment; nothing is heard. What
/// drivers write meanwhile is hidden unless `verbose`.
Findings checkSound(bool verbose);

/// Which sound files can be read.
Finding checkFormats();

} // namespace OrvelTool
