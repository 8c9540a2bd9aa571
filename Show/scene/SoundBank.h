#pragma once

#include <Show/scene/Scene.h>
#include <Show/scene/SceneFile.h>

#include <Orvel/SoundFile.h>

#include <cstddef>
#include <map>
#include <vector>

namespace Show {

using Samples = Orvel::SoundFile::Pcm;

/// The decoded files and tones of a scene, each once however often it is used. Loaded once and
/// shared by any number of players. Confined to one thread at a time.
class SoundBank {
public:
    static constexpr unsigned kToneRate = 44100;
    /// The most that all sounds together take, in bytes.
    static constexpr std::size_t kMaxBytes = std::size_t{1} << 30U;

    explicit SoundBank(std::size_t maxBytes = kMaxBytes) : maxBytes_(maxBytes) {}

    /// Decodes every file and tone of the scene, those that come in its timeline too. False if
    /// there are problems; the sounds without one are there all the same. URLs are left to the back
    /// ends.
    bool load(const Scene& scene, std::vector<Problem>& problems);

    /// The samples of a file or tone, or null for a URL and for what is not loaded.
    [[nodiscard]] const Samples* find(const Sound& sound) const;

private:
    std::map<Sound, Samples> samples_;
    std::size_t maxBytes_;
    std::size_t bytes_ = 0;
};

} // namespace Show
