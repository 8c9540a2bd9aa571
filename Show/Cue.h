#pragma once

#include <string>

namespace Show {

/// A named part of a scene's timeline.
struct Cue {
    std::string name;
    double at = 0.0;    ///< its begin, in seconds of the scene
    double until = 0.0; ///< its end; infinity: the end of the scene
};

/// What a playback does.
enum class PlayState {
    Waiting, ///< armed: for the next cue
    Playing,
    Paused,
    Over ///< past the end
};

} // namespace Show
