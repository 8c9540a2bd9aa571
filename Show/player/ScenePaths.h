#pragma once

#include <Show/scene/LoadedScene.h>

#include <string>
#include <vector>

namespace Show {

/// The state of a part at a time, in seconds from the start of the scene.
struct Place {
    double time = 0.0;
    Orvel::Vec3f position;
    Orvel::Quaternion rotation;
};

/// The path of one emitter, from its creation to its destruction, or of the listener.
struct Track {
    int id = 0;                ///< 0 for the listener
    std::string sound;         ///< the name of its first sound; may be empty
    Orvel::Hull hull;          ///< at its creation
    bool spatial = true;       ///< otherwise heard at the listener
    std::vector<Place> places; ///< by time; one per change
};

/// The movements of a scene.
struct ScenePaths {
    double end = 0.0;
    Track listener;
    std::vector<Track> emitters; ///< in order of appearance
};

/// Plays a scene through in a world without back ends.
ScenePaths followScene(const LoadedScene& loaded);

/// The position at a time, interpolated between places.
Orvel::Vec3f positionAt(const Track& track, double time);

} // namespace Show
