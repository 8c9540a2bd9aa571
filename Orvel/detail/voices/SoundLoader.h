#pragma once

#include <Corvid/URL.h>
#include <Orvel/detail/voices/Sound.h>
#include <Orvel/detail/voices/Worker.h>

#include <memory>

namespace Orvel::detail {

/// Fetches and decodes sounds on threads of its own, in the order in which they are given. Those
/// that nothing uses any more are skipped. Confined.
class SoundLoader {
public:
    SoundLoader();
    SoundLoader(const SoundLoader&) = delete;
    SoundLoader& operator=(const SoundLoader&) = delete;
    ~SoundLoader();

    /// Begins to load a sound; see Sound::state().
    void load(std::shared_ptr<Sound> sound, const Corvid::URL& url);

private:
    struct Jobs;

    std::shared_ptr<Jobs> jobs_;
    // Two, so that one slow download does not delay everything.
    std::unique_ptr<Worker> workers_[2];
};

} // namespace Orvel::detail
