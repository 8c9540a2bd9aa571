#pragma once

#include <Show/scene/Scene.h>
#include <Show/scene/SoundBank.h>

#include <Orvel/Source.h>
#include <Orvel/World.h>

#include <functional>
#include <string>

namespace Show {

/// Interface of back ends that show the name of a source's sound, which the world does not know.
class SoundNames {
public:
    SoundNames() = default;
    SoundNames(const SoundNames&) = delete;
    SoundNames& operator=(const SoundNames&) = delete;
    virtual ~SoundNames() = default;
    virtual void setSoundName(int source, std::string name) = 0;
};

/// Passes the name to each such back end of the source's world.
void nameSound(const Orvel::Source& source, const Sound& sound);

/// Sets a source's sound by URL, and reports it if OpenAL has fetched and refuses it.
void giveUrl(Orvel::Source& source, const std::string& url);

/// How a source gets a long file.
enum class LongFiles {
    AsNeeded, ///< by its path if all that plays in the world reads files while they play, else
              ///< decoded
    ByPath    ///< by its path, for back ends that are added later
};

/// Gives a source its sound: the samples of a tone or a short file, a long file, or the URL. A
/// failure is reported.
void giveSound(
    const SoundBank& sounds, Orvel::Source& source, const Sound& sound, LongFiles longFiles);

/// A function that gives a source its sound.
using GiveSound = std::function<void(Orvel::Source& source, const Sound& sound)>;

/// A function that gives a source nothing but passes on the length of its sound, in seconds; 0 if
/// that is not known. The sounds must outlive it.
GiveSound
giveLength(const SoundBank& sounds, std::function<void(int source, double seconds)> setLength);

/// Creates the source of a description, in no state; has no effect if the id is in use.
void createSource(Orvel::World& world, const SourceSpec& spec, const GiveSound& give);

} // namespace Show
