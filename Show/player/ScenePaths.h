#pragma once

#include <Show/scene/LoadedScene.h>

#include <string>
#include <vector>

namespace Show {

/// Where something is at a time, in seconds from the start of the scene.
struct Place {
    double time = 0.0;
    Orvel::Vec3f position;
    Orvel::Quaternion rotation;
};

/// One emitter's stay in the scene, or the listener's.
struct Track {
    int id = 0;                ///< 0 for the listener
    std::string sound;         ///< the name of what it plays first; may be empty
    Orvel::Hull hull;          ///< at its beginning
    bool spatial = true;       ///< otherwise it is heard at the listener
    std::vector<Place> places; ///< by time; a new one only where something has changed
};

/// How everything moves while a scene plays.
struct ScenePaths {
    double end = 0.0;
    Track listener;
    std::vector<Track> emitters; ///< in the order in which they appear
};

/// Plays a scene through in a world without back ends.
ScenePaths followScene(const LoadedScene& loaded);

/// Where a track is at a time, between its places in a straight line.
Orvel::Vec3f positionAt(const Track& track, double time);

} // namespace Show
