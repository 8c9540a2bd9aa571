#pragma once

#include <Show/scene/Scene.h>
#include <Show/scene/SceneFile.h>

#include <Orvel/SoundFile.h>

#include <cstddef>
#include <map>
#include <vector>

namespace Show {

using Samples = Orvel::SoundFile::Pcm;

/// The decoded files and tones of a scene, each once. Loaded once and shared by any number of
/// players. Confined to one thread at a time.
class SoundBank {
public:
    static constexpr unsigned kToneRate = 44100;
    /// Limit of all sounds together, in bytes.
    static constexpr std::size_t kMaxBytes = std::size_t{1} << 30U;

    explicit SoundBank(std::size_t maxBytes = kMaxBytes) : maxBytes_(maxBytes) {}

    /// Decodes every file and tone of the scene, including those of its timeline. Returns false if
    /// there are problems; the other sounds are available all the same. URLs are left to the back
    /// ends.
    bool load(const Scene& scene, std::vector<Problem>& problems);

    /// The samples of a file or tone; null for a URL and for a sound that is not loaded.
    [[nodiscard]] const Samples* find(const Sound& sound) const;

private:
    std::map<Sound, Samples> samples_;
    std::size_t maxBytes_;
    std::size_t bytes_ = 0;
};

} // namespace Show
