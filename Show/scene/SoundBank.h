#pragma once

#include <Show/scene/Scene.h>
#include <Show/scene/SceneFile.h>

#include <Orvel/SoundFile.h>

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Show {

using Samples = Orvel::SoundFile::Pcm;

/// The files and tones of a scene, each once: short ones decoded, long ones only opened, as a back
/// end may read them while they play. Loaded once and shared by any number of players. Confined to
/// one thread at a time.
class SoundBank {
public:
    static constexpr unsigned kToneRate = 44100;
    /// Limit of all sounds together, in bytes.
    static constexpr std::size_t kMaxBytes = std::size_t{1} << 30U;

    /// Files longer than this, in seconds, are long.
    static constexpr double kMaxShort = 10.0;

    /// How a sound plays.
    struct Shape {
        unsigned channels = 1;
        double seconds = 0.0;
    };

    explicit SoundBank(std::size_t maxBytes = kMaxBytes) : maxBytes_(maxBytes) {}

    /// Loads every file and tone of the scene, including those of its timeline. Returns false if
    /// there are problems; the other sounds are available all the same. URLs are left to the back
    /// ends.
    bool load(const Scene& scene, std::vector<Problem>& problems);

    /// The form of a file or tone; nothing for a URL and for a sound that is not loaded. It is the
    /// one of a file's header, which may be wrong for a damaged long file.
    [[nodiscard]] std::optional<Shape> shapeOf(const Sound& sound) const;
    /// Whether it is a long file.
    [[nodiscard]] bool isLong(const Sound& sound) const { return long_.contains(sound); }
    /// The samples of a file or tone; null for a URL and for a sound that is not loaded. A long
    /// file is decoded by the first call. If that fails, the result is null, and `fault` the
    /// reason.
    const Samples* decode(const Sound& sound, std::string& fault) const;

private:
    std::map<Sound, Shape> long_;
    std::size_t maxBytes_;
    mutable std::map<Sound, Samples> samples_;
    mutable std::size_t bytes_ = 0;
};

} // namespace Show
