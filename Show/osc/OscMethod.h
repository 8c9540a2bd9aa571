#pragma once

#include <Show/osc/OscAnswer.h>
#include <Show/osc/OscFamily.h>

#include <string>

namespace Show {

/// One path, as it is described to controllers.
struct OscMethod {
    std::string path;
    std::string meaning; ///< for people
    OscRanges ranges;
    bool readable = false;
    bool writable = false;
    std::string types; ///< of its arguments; "N": none
    OscValues values;  ///< the present ones if it is readable
};

/// A place among the paths of a scene, which goes on behind parts that come and go.
struct OscCursor {
    int family = 0;
    int id = 0; ///< of the last part that was visited
};

} // namespace Show
