#pragma once

#include <string>

#include <orvel_show_export.h>

namespace Show {

/// A mistake in a scene file or in one of its sounds, or a warning about it, or a part of a capture
/// that cannot be played.
struct Problem {
    std::string file;  ///< the file, as given
    int line = 0;      ///< from 1; 0 if it concerns the whole file
    std::string field; ///< such as "emitters[0].gain"; may be empty
    std::string text;  ///< the expected and the actual value
    int column = 0;    ///< from 1 for JSON syntax errors; otherwise 0

    /// One line: "scene.json:12: emitters[0].gain: expected ..., found ...". A column follows the
    /// line: "scene.json:12:7: ...". Control characters are escaped.
    [[nodiscard]] ORVEL_SHOW_EXPORT std::string str() const;
};

} // namespace Show
