#pragma once

#include <Show/scene/Scene.h>
#include <Show/scene/SoundBank.h>

#include <Orvel/Source.h>
#include <Orvel/World.h>

#include <functional>
#include <string>

namespace Show {

/// A back end that shows what a source's sound is called; the world itself knows no names.
class SoundNames {
public:
    SoundNames() = default;
    SoundNames(const SoundNames&) = delete;
    SoundNames& operator=(const SoundNames&) = delete;
    virtual ~SoundNames() = default;
    virtual void setSoundName(int source, std::string name) = 0;
};

/// Tells each such back end of the source's world.
void nameSound(const Orvel::Source& source, const Sound& sound);

/// Gives a source its sound: the decoded samples of a file or tone, or the URL.
void giveSound(const SoundBank& sounds, Orvel::Source& source, const Sound& sound);

/// Gives a source its sound in one way or another.
using GiveSound = std::function<void(Orvel::Source& source, const Sound& sound)>;

/// Makes the source that a scene describes, in no state; nothing happens if the id is taken.
void createSource(Orvel::World& world, const SourceSpec& spec, const GiveSound& give);

} // namespace Show
