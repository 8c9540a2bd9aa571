#pragma once

#include <Orvel/WorldPart.h>

namespace Orvel::detail {

/// The state of a part on the servers: a return to NONE is not sent.
inline WorldPart::State sentState(const WorldPart& part) {
    return part.state() == WorldPart::NONE ? part.previousState() : part.state();
}

} // namespace Orvel::detail
